// A host calls a module through the two functions that the module's shared object exports.
//
// A host loads the object with dlopen (its own exports must be visible to it), checks the version,
// and calls server_mod_init once, from its initialising thread, after it has enumerated the buses.
// A module stays loaded until the process ends. The non-loaded section "Zantor_usage" of the file
// holds the module's usage text; "%C" in it stands for the module's name.
#pragma once

#include "types.h"

struct version_pair_t {
    std::uint16_t major;
    std::uint16_t minor;
};

// A version packed into one number: major in bits 15:0, minor in bits 31:16.
constexpr std::uint32_t pack_version(version_pair_t version) {
    return version.major | std::uint32_t{version.minor} << 16;
}

constexpr version_pair_t unpack_version(std::uint32_t packed) {
    return {.major = static_cast<std::uint16_t>(packed & 0xFFFF),
            .minor = static_cast<std::uint16_t>(packed >> 16)};
}

struct mod_init_args_t {
    version_pair_t server_version;
    version_pair_t lib_version;
    std::uint32_t argc;
    const char *const
        *argv;  // the module's arguments, the first at index 0; null when there are none
};

extern "C" {

// Starts the module. `args` and all that it points to stay the host's; the module reads it during
// the call and keeps no pointer. Returns 0, or PCI_ERR_INCOMPATIBLE, with nothing done, when the
// library or the server is too old.
//
// The calling thread needs more than 128 KiB of free stack, and for each line of a feature file its
// text and up to 64 bytes, until the file has been read. Lines for which this is not there are
// dropped: a message names "MAKE_TMP_STRING alloca() failed" as an unknown keyword, or as a value
// that the feature refuses; 0 is returned all the same. Start-up itself takes 29 KiB on the deepest
// tree, 255 bridges one below the other: a thread with less than that may overflow its stack.
HOPLAR_EXPORT pci_err_t server_mod_init(const mod_init_args_t *args);

// Returns the module's version as pack_version() packs it, BAD_VERSION (server.h) when it is not
// known. May be called at any time, from any thread.
HOPLAR_EXPORT std::uint32_t server_mod_version(void);

}  // extern "C"
