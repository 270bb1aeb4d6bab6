// The host's bus configuration object: modules register functions that the host calls before and
// after it inserts, removes, resets or reconfigures functions.
#pragma once

#include "bridge.h"
#include "types.h"

// Kinds of hooks, as the host numbers them.
constexpr std::uint32_t BUSCFG_HOOK_PRE_INSERTION = 1;
constexpr std::uint32_t BUSCFG_HOOK_POST_INSERTION = 2;
constexpr std::uint32_t BUSCFG_HOOK_PRE_REMOVAL = 3;
constexpr std::uint32_t BUSCFG_HOOK_POST_REMOVAL = 4;
constexpr std::uint32_t BUSCFG_HOOK_PRE_RESET = 5;
constexpr std::uint32_t BUSCFG_HOOK_POST_RESET = 6;
constexpr std::uint32_t BUSCFG_HOOK_PRE_RECONFIG = 7;
constexpr std::uint32_t BUSCFG_HOOK_POST_RECONFIG = 8;

// Types of resets.
constexpr std::uint32_t RESET_TYPE_BUS = 1;  // secondary bus reset of the upstream bridge of the
                                             // function; of the function itself where it is a
                                             // bridge on a root bus
constexpr std::uint32_t RESET_TYPE_FLR = 2;  // function-level reset of the function alone

// Hooks run on the host's threads, several at once, and possibly while the module still starts.
// The host holds none of a bridge's locks while it calls one. A hook takes up to 28 KiB of the
// thread's stack, of which 255 bridges one below the other need the most; what the access library
// and the log of the host in this repository take is included.
//
// Insertion and removal: the bridge below which functions come or go, a value for
// cached_param_get_sec_busnum(), and the status of the event as an error code, 0 = success.
using insertion_hook_t = void (*)(bridge_rec *bridge, std::uint32_t value, int status);
using removal_hook_t = void (*)(bridge_rec *bridge, std::uint32_t value, int status);
// Reset: RESET_TYPE_*, the function that was reset, the status as an error code, 0 = success.
using reset_hook_t = void (*)(std::uint32_t reset_type, bdf_t bdf, int status);
// Reconfiguration hooks have no arguments yet, and no host calls them.
using reconfig_hook_t = void (*)();
// A registration carries a hook of any type; `kind` tells the real one.
using buscfg_hook_t = void (*)();

// One registration. The module allocates it zero-filled with calloc and sets `kind` and `hook`.
// After add_hook() took it, the host owns it for the life of the process.
struct buscfg_hook_reg_t {
    void *host_links[2];
    std::uint32_t kind;  // BUSCFG_HOOK_*
    buscfg_hook_t hook;
    void *host_words[2];
};

struct buscfg_t {
    // Registers one hook. Returns 0; PCI_ERR_INVALID for an unknown kind or a null hook;
    // PCI_ERR_NO_MEMORY. On an error the module still owns the block. Hooks of one kind are called
    // in the order of their registration.
    pci_err_t (*add_hook)(buscfg_hook_reg_t *block);
};

extern "C" {

// The bus configuration object, null while the host has none. Modules look this up with dlsym as
// "buscfg".
HOPLAR_EXPORT extern buscfg_t *buscfg;

}  // extern "C"
