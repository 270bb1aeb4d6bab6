// The identity of this server, and the functions that it manages.
#include "host/exports/register_access.h"
#include "host/exports/serve.h"
#include "platform/pci_regs.h"
#include "platform/server.h"

namespace {

constexpr std::uint32_t OWN_ID = 1;
constexpr std::uint32_t OTHER_ID = 0;

}  // namespace

const std::uint32_t bad_version = BAD_VERSION;

std::uint32_t my_server_id(void) {
    return OWN_ID;
}

std::uint32_t hoplar_get_id(bdf_t bdf) {
    return bdf <= BDF_HIGHEST && host::manages(pci::bus_of(bdf)) ? OWN_ID : OTHER_ID;
}

// Only a greater number counts, so that a chain that loops comes to its end.
std::uint32_t enum_next_ari_func(bdf_t bdf, std::uint32_t) {
    const host::Function *function = nullptr;
    if (host::find_function(bdf, function) != PCI_OK)
        return ARI_NO_FUNCTION;
    const auto ari = function->ext_cap(EXT_CAPID_ARI);
    std::uint16_t capability = 0;
    if (!ari || host::recall_register(bdf, *ari + pci::ARI_CAPABILITY, host::Changes::NEVER,
                                      capability) != PCI_OK)
        return ARI_NO_FUNCTION;
    const std::uint32_t next = pci::get(capability, pci::ARI_CAPABILITY_NEXT_FUNCTION);
    if (next <= pci::function_of(bdf | BDF_ARI_FLAG) ||
        host::find_function(pci::ari_bdf(pci::bus_of(bdf), next), function) != PCI_OK)
        return ARI_NO_FUNCTION;
    return next;
}
