// Start-up, in this order: the access library and the server must be 3.0 or later; the arguments
// are echoed; every --config file is parsed, in the order given; every feature starts, in table
// order. A file that cannot be read or a feature that fails is reported and stops nothing.
#include "module/startup.h"

#include <getopt.h>

#include <climits>
#include <cstdio>
#include <cstdlib>

#include "module/base/feature.h"
#include "module/base/guards.h"
#include "module/base/log.h"
#include "module/config_file.h"
#include "platform/pci_access.h"
#include "platform/server.h"

namespace enable_features {

namespace {

constexpr char version_text[] = "3_0";

// The oldest access library and host server that the module works with.
constexpr version_pair_t oldest = {.major = 3, .minor = 0};

std::uint32_t version = BAD_VERSION;  // packed; accessed atomically, without a lock

constexpr bool is_older(version_pair_t candidate, version_pair_t limit) {
    return candidate.major != limit.major ? candidate.major < limit.major
                                          : candidate.minor < limit.minor;
}

// Returns 0 when the access library and the server are new enough; logs which of them is not.
pci_err_t check_versions(const mod_init_args_t &args, version_pair_t own) {
    if (is_older(args.lib_version, oldest)) {
        LOG_ERROR(0,
                  "library versions < %d.%d are not compatible with server enable features module "
                  "v%d.%d",
                  oldest.major, oldest.minor, own.major, own.minor);
        return PCI_ERR_INCOMPATIBLE;
    }
    if (is_older(args.server_version, oldest)) {
        LOG_ERROR(1,
                  "server versions < %d.%d are not compatible with server enable features module "
                  "v%d.%d",
                  oldest.major, oldest.minor, own.major, own.minor);
        return PCI_ERR_INCOMPATIBLE;
    }
    return PCI_OK;
}

// getopt_long() sorts its vector, so it gets one that the module owns: a program name, the
// arguments and the closing null. Null when memory is short.
heap_ptr<char *> scanner_vector(const mod_init_args_t &args) {
    static char program_name[] = "hoplar-enable_features";
    if (args.argc > INT_MAX - 2)
        return nullptr;  // getopt_long() counts in int; GCOVR_EXCL_LINE: takes 16 GiB of arguments
    heap_ptr<char *> vector(
        static_cast<char **>(std::calloc(std::size_t{args.argc} + 2, sizeof(char *))));
    if (vector == nullptr)
        return vector;
    vector.get()[0] = program_name;
    for (std::uint32_t i = 0; i < args.argc; i++)
        vector.get()[i + 1] = const_cast<char *>(args.argv[i]);  // getopt_long() writes no text
    return vector;
}

void scan_options(const mod_init_args_t &args) {
    static constexpr option long_options[] = {
        {.name = "config", .has_arg = required_argument, .flag = nullptr, .val = 0}, {}};
    const heap_ptr<char *> vector = scanner_vector(args);
    if (vector == nullptr) {
        LOG_ERROR(0, "Unable to scan the module's arguments, %s", pci_strerror(PCI_ERR_NO_MEMORY));
        return;
    }
    const int count = static_cast<int>(args.argc) + 1;
    optind = 0;  // reset getopt_long(), which the host may have used
    // "-" makes getopt_long() return arguments that are no options, which are then ignored.
    // Otherwise they would end the scan where the environment holds POSIXLY_CORRECT.
    int found = 0;
    while ((found = getopt_long(count, vector.get(), "-v", long_options, nullptr)) != -1) {
        if (found != 0)
            continue;  // -v, an argument that is no option, or one that getopt_long() reported
        const pci_err_t result = parse_feature_config(optarg);
        LOG_DEBUG(3, "parse_feature_config(), %s", pci_strerror(result));
    }
}

void start_features() {
    for (feature_t &row : feature_list) {
        const pci_err_t result = row.init(&row);
        if (result == PCI_OK || result == PCI_ERR_NOTHING_TO_DO)
            LOG_INFO(1, "%s initialization, %s", row.name, pci_strerror(result));
        else
            LOG_ERROR(1, "%s initialization failed, %s", row.name, pci_strerror(result));
    }
}

}  // namespace

std::uint32_t mod_version() {
    const std::uint32_t known = __atomic_load_n(&version, __ATOMIC_RELAXED);
    if (known != bad_version)
        return known;
    unsigned major = 0;
    unsigned minor = 0;
    if (std::sscanf(version_text, "%u_%u", &major, &minor) != 2)
        return known;  // GCOVR_EXCL_LINE: the text is the one above
    const std::uint32_t packed = pack_version(
        {.major = static_cast<std::uint16_t>(major), .minor = static_cast<std::uint16_t>(minor)});
    __atomic_store_n(&version, packed, __ATOMIC_RELAXED);
    return packed;
}

pci_err_t start_module(const mod_init_args_t *args) {
    const pci_err_t refused = check_versions(*args, unpack_version(mod_version()));
    if (refused != PCI_OK) {
        LOG_ERROR(0, "Enable Features module init failed, %s", pci_strerror(refused));
        return refused;
    }
    if (args->argv != nullptr) {
        for (std::uint32_t i = 0; i < args->argc; i++)
            LOG_DEBUG(1, "argv[%u] = %s", i, args->argv[i]);
        scan_options(*args);
    }
    start_features();
    LOG_INFO(1, "Enable Features module init, %s", pci_strerror(PCI_OK));
    return PCI_OK;
}

}  // namespace enable_features
