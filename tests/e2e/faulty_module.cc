// A module that does what its first argument says, so that the host's answers to faulty modules can
// be tested.
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>
#include <string_view>

#include "platform/buscfg.h"
#include "platform/module.h"

namespace {

void throwing_hook(std::uint32_t, bdf_t, int) {
    throw std::runtime_error("from a hook");
}

pci_err_t register_hook() {
    auto *const block = static_cast<buscfg_hook_reg_t *>(std::calloc(1, sizeof(buscfg_hook_reg_t)));
    block->kind = BUSCFG_HOOK_POST_RESET;
    block->hook = reinterpret_cast<buscfg_hook_t>(throwing_hook);
    return buscfg->add_hook(block);
}

}  // namespace

std::uint32_t server_mod_version() {
    return 1;
}

pci_err_t server_mod_init(const mod_init_args_t *args) {
    const std::string_view what = args->argv[0];
    if (what == "throw")
        throw std::runtime_error("from start\033[m");
    if (what == "throw-number")
        throw 1;
    if (what == "exit")
        std::exit(0);
    while (what == "hang")
        pause();
    return what == "hook" ? register_hook() : PCI_ERR_NOT_SUPPORTED;
}
