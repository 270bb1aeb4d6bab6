// The plug-in exports these two functions; everything else is an ordinary library.
#include "module/startup.h"

pci_err_t server_mod_init(const mod_init_args_t *args) {
    return enable_features::start_module(args);
}

std::uint32_t server_mod_version(void) {
    return enable_features::mod_version();
}
