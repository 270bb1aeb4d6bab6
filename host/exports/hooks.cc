#include "host/exports/hooks.h"

#include <dlfcn.h>

#include <array>
#include <cstdlib>
#include <mutex>
#include <new>
#include <type_traits>
#include <vector>

#include "host/base/module_faults.h"
#include "host/exports/payload_guard.h"

namespace host {

namespace {

constexpr std::size_t KINDS = BUSCFG_HOOK_POST_RECONFIG + 1;

struct Registrations {
    std::mutex lock;
    std::array<std::vector<buscfg_hook_reg_t *>, KINDS> by_kind;
};

// Never destroyed, because hooks may run until the process ends.
Registrations &registrations() {
    static Registrations &all = *new Registrations;
    return all;
}

pci_err_t add_hook(buscfg_hook_reg_t *block) {
    if (!block || !block->hook || block->kind < BUSCFG_HOOK_PRE_INSERTION ||
        block->kind > BUSCFG_HOOK_POST_RECONFIG)
        return PCI_ERR_INVALID;
    Registrations &all = registrations();
    const std::scoped_lock guard(all.lock);
    try {
        all.by_kind[block->kind].push_back(block);
    } catch (const std::bad_alloc &) {
        return PCI_ERR_NO_MEMORY;
    }
    return PCI_OK;
}

// Returns a copy, so that hooks run without the lock: they may take long, and register others.
std::vector<buscfg_hook_reg_t *> hooks_of(std::uint32_t kind) {
    Registrations &all = registrations();
    const std::scoped_lock guard(all.lock);
    return kind < KINDS ? all.by_kind[kind] : std::vector<buscfg_hook_reg_t *>();
}

bool is_reset(std::uint32_t kind) {
    return kind == BUSCFG_HOOK_PRE_RESET || kind == BUSCFG_HOOK_POST_RESET;
}

bool is_insertion_or_removal(std::uint32_t kind) {
    return kind >= BUSCFG_HOOK_PRE_INSERTION && kind <= BUSCFG_HOOK_POST_REMOVAL;
}

// An exception is caught here, so that the other hooks are still called.
template <typename Hook, typename... Arguments>
void call(const buscfg_hook_reg_t &block, Arguments... arguments) {
    try {
        reinterpret_cast<Hook>(block.hook)(arguments...);
    } catch (...) {
        Dl_info object_file{};
        dladdr(reinterpret_cast<const void *>(block.hook), &object_file);
        log_exception(object_file.dli_fname ? object_file.dli_fname : "(unknown)", "a hook");
    }
}

buscfg_t object = {.add_hook = add_hook};

}  // namespace

void call_bridge_hooks(std::uint32_t kind, bridge_rec *bridge, std::uint32_t value, int status) {
    static_assert(std::is_same_v<insertion_hook_t, removal_hook_t>);
    if (!is_insertion_or_removal(kind))
        return;
    for (const buscfg_hook_reg_t *block : hooks_of(kind))
        call<insertion_hook_t>(*block, bridge, value, status);
    keep_payloads_in_bounds();
}

void call_reset_hooks(std::uint32_t kind, std::uint32_t reset_type, bdf_t bdf, int status) {
    if (!is_reset(kind))
        return;
    for (const buscfg_hook_reg_t *block : hooks_of(kind))
        call<reset_hook_t>(*block, reset_type, bdf, status);
    keep_payloads_in_bounds();
}

void forget_hooks() {
    Registrations &all = registrations();
    const std::scoped_lock guard(all.lock);
    for (std::vector<buscfg_hook_reg_t *> &blocks : all.by_kind) {
        for (buscfg_hook_reg_t *block : blocks)
            std::free(block);
        blocks.clear();
    }
}

}  // namespace host

buscfg_t *buscfg = &host::object;
