// A minimal host server. It exports only what this module needs, not all that the headers declare,
// for a machine without any function, loads the module named on its command line with the arguments
// behind it, and prints the module's messages.
//
//   g++ -std=c++20 -I PREFIX/include/hoplar tiny_host.cc -rdynamic -ldl -o tiny_host
//   ./tiny_host PREFIX/lib/hoplar/hoplar-enable_features.so --config=features.cfg
//
// From here a real host fills in one export after the other and adds those that other modules need;
// the headers say what each must do.
#include <dlfcn.h>

#include <cstdio>
#include <cstring>

#include "bridge.h"
#include "buscfg.h"
#include "config_text.h"
#include "log.h"
#include "module.h"
#include "pci_access.h"
#include "server.h"

// The log: one handle for all messages, filtered by verbosity.
static int print_message(int severity, int verbosity, int message_verbosity, const char *format,
                         va_list args) {
    if (message_verbosity > verbosity)
        return 0;
    std::printf("[%d] ", severity);
    std::vprintf(format, args);
    std::puts("");
    return 0;
}
static log_handle_t handle = {print_message};
log_handle_t *pci_slog = &handle;
log_handle_t *pci_dbg = &handle;
int pci_verbosity = 1;

// The bus configuration object: this host never resets or inserts a function, so it accepts hooks
// and never calls them.
static pci_err_t add_hook(buscfg_hook_reg_t *) {
    return PCI_OK;
}
static buscfg_t bus_configuration = {add_hook};
buscfg_t *buscfg = &bus_configuration;

// The bridge tree: empty.
bridge_rec *find_parent_bridge(bridge_rec *, bdf_t) {
    return nullptr;
}
bridge_rec *find_bridge_bdf(bridge_rec *, bdf_t) {
    return nullptr;
}
bridge_rec *find_bridge_sec_busnum(bridge_rec *, std::uint32_t) {
    return nullptr;
}
int cached_param_get_sec_busnum(bridge_rec *, std::uint32_t) {
    return -1;
}

// Functions: none.
bdf_t pci_device_find(std::uint32_t, std::uint16_t, std::uint16_t, std::uint32_t) {
    return BDF_NONE;
}
int pci_device_get_type(bdf_t, std::uint32_t *) {
    return 0;
}
int pci_device_find_capid(bdf_t, std::uint8_t) {
    return -1;
}
pci_err_t pci_device_read_cap(bdf_t, pci_cap_t **, int) {
    return PCI_ERR_NO_DEVICE;
}
bool pci_device_is_multi_func(bdf_t) {
    return false;
}
pci_err_t pci_device_read_vid(bdf_t, std::uint16_t *) {
    return PCI_ERR_NO_DEVICE;
}
const char *pci_strerror(pci_err_t code) {
    return code == PCI_OK ? "Success" : std::strerror(static_cast<int>(code));
}

// The server's identity and its records.
const std::uint32_t bad_version = BAD_VERSION;
std::uint32_t my_server_id(void) {
    return 1;
}
std::uint32_t hoplar_get_id(bdf_t) {
    return 1;
}
std::uint32_t enum_next_ari_func(bdf_t, std::uint32_t) {
    return 256;
}

// Configuration text: lines that begin with "#" are comments.
const char *skip_comment(const char *p) {
    while (*p == '#' || *p == '\n') {
        while (*p != '\0' && *p != '\n')
            p++;
        if (*p == '\n')
            p++;
    }
    return p;
}
const char *find_eol(const char *p, const char *last) {
    if (p > last)
        return nullptr;
    while (p <= last && *p != '\n')
        p++;
    return p;
}
const char *find_token(char c, const char *p, const char *eol) {
    return static_cast<const char *>(std::memchr(p, c, static_cast<std::size_t>(eol - p)));
}
static bool is_default_name_char(char c) {
    return std::strchr("=# \t\r\n", c) == nullptr;
}
const char *find_name(const char *first, const char *last, std::uint32_t *length,
                      name_char_t is_name_char) {
    if (is_name_char == nullptr)
        is_name_char = is_default_name_char;
    while (first <= last && (*first == ' ' || *first == '\t'))
        first++;
    const char *end = first;
    while (end <= last && is_name_char(*end))
        end++;
    if (end == first)
        return nullptr;
    *length = static_cast<std::uint32_t>(end - first);
    return first;
}

int main(int argc, char **argv) {
    if (argc < 2) {
        std::puts("usage: tiny_host MODULE [ARGUMENT...]");
        return 2;
    }
    void *module = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    void *symbol = module != nullptr ? dlsym(module, "server_mod_init") : nullptr;
    if (symbol == nullptr) {
        std::printf("%s\n", dlerror());
        return 1;
    }
    mod_init_args_t args = {};
    args.server_version = {3, 0};
    args.lib_version = {3, 0};
    args.argc = static_cast<std::uint32_t>(argc - 2);
    args.argv = argv + 2;
    return reinterpret_cast<decltype(&server_mod_init)>(symbol)(&args) == PCI_OK ? 0 : 1;
}
