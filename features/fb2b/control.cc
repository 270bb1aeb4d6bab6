// Each mode is a row that says what is done to each function and each child bridge, what is done to
// the bridge itself, and whether a failure takes everything back.
#include "features/fb2b/control.h"

#include "module/base/guards.h"
#include "module/base/host_symbols.h"
#include "module/base/log.h"
#include "platform/pci_access.h"
#include "platform/pci_regs.h"
#include "topology/bridge_links.h"
#include "topology/bridge_walk.h"

namespace enable_features {

namespace {

// An enable bit and the operations on its register.
struct enable_bit_t {
    pci_err_t (*read)(bdf_t bdf, std::uint16_t *value);
    pci_err_t (*write)(bdf_token token, std::uint16_t value, std::uint16_t *after);
    std::uint16_t mask;
};

constexpr enable_bit_t COMMAND_BIT = {.read = pci_device_read_cmd,
                                      .write = pci_device_write_cmd,
                                      .mask = pci::COMMAND_FAST_B2B_ENABLE};
constexpr enable_bit_t BRIDGE_CONTROL_BIT = {.read = pci_device_read_bridge_ctrl,
                                             .write = pci_device_write_bridge_ctrl,
                                             .mask = pci::BRIDGE_CONTROL_FAST_B2B_ENABLE};

bool is_capable(bdf_t bdf) {
    std::uint16_t status = 0;
    return pci_device_read_status(bdf, &status) == PCI_OK &&
           (status & pci::STATUS_FAST_B2B_CAPABLE) != 0;
}

// Reads the register back, because a function without the bit ignores the write.
bool turn_on(const enable_bit_t &bit, bdf_t bdf) {
    std::uint16_t value = 0;
    if (bit.read(bdf, &value) != PCI_OK)
        return false;
    std::uint16_t after = 0;
    const auto wanted = static_cast<std::uint16_t>(value | bit.mask);
    return bit.write(pci::token_of(bdf), wanted, &after) == PCI_OK && (after & bit.mask) != 0;
}

// Registers that cannot be read are passed over: there is nothing to switch off.
bool turn_off(const enable_bit_t &bit, bdf_t bdf) {
    std::uint16_t value = 0;
    if (bit.read(bdf, &value) == PCI_OK) {
        std::uint16_t after = 0;
        bit.write(pci::token_of(bdf), static_cast<std::uint16_t>(value & ~bit.mask), &after);
    }
    return true;
}

struct fb2b_mode_t {
    int mode;
    bool (*on_function)(bdf_t bdf);  // false: the mode has failed
    bool (*on_bridge)(bdf_t bdf);    // after all functions; false likewise
    bool takes_back;                 // on failure, by FB2B_DISABLE
};

constexpr fb2b_mode_t modes[] = {
    {.mode = FB2B_TEST,
     .on_function = is_capable,
     .on_bridge = [](bdf_t) { return true; },
     .takes_back = false},
    {.mode = FB2B_ENABLE,
     .on_function = [](bdf_t bdf) { return turn_on(COMMAND_BIT, bdf); },
     .on_bridge = [](bdf_t bdf) { return turn_on(BRIDGE_CONTROL_BIT, bdf); },
     .takes_back = true},
    {.mode = FB2B_DISABLE,
     .on_function = [](bdf_t bdf) { return turn_off(COMMAND_BIT, bdf); },
     .on_bridge = [](bdf_t bdf) { return turn_off(BRIDGE_CONTROL_BIT, bdf); },
     .takes_back = false},
};

// Always returns false. The caller may hold devs_lock for reading, which the disable takes again.
bool give_up(bridge_rec *bridge, const fb2b_mode_t &mode) {
    if (mode.takes_back)
        fast_back_to_back(bridge, FB2B_DISABLE);
    return false;
}

bool run_on_functions(bridge_rec *bridge, const fb2b_mode_t &mode) {
    const read_guard guard(bridge->devs_lock);
    if (bridge->num_devs == 0)
        return false;
    for (std::uint32_t i = 0; i < bridge->num_devs; i++)
        if (!mode.on_function(bridge->devs[i]))
            return give_up(bridge, mode);
    return true;
}

bool run_on_children(bridge_rec *bridge, const fb2b_mode_t &mode) {
    for (bridge_rec *child = first_child(bridge); child != nullptr; child = next_sibling(child))
        if (!mode.on_function(child->bdf))
            return give_up(bridge, mode);
    return true;
}

bool run(bridge_rec *bridge, const fb2b_mode_t &mode) {
    if (!run_on_functions(bridge, mode) || !run_on_children(bridge, mode))
        return false;
    return mode.on_bridge(bridge->bdf) || give_up(bridge, mode);
}

// Returns the bus that messages name; 0 when a bridge's Secondary Bus Number cannot be read.
unsigned secondary_bus_of(const bridge_rec *bridge) {
    if (bridge->bridge_kind != BRIDGE_KIND_PCI_TO_PCI)
        return pci::bus_of(bridge->bdf);
    std::uint8_t bus = 0;
    pci_device_read_sec_busnum(bridge->bdf, &bus);
    return bus;
}

int apply_by_bdf(bdf_t bdf, void (*one)(bridge_rec *bridge), int (*all)(bridge_rec *first)) {
    if (bdf == BDF_NONE)
        return all(find_parent_bridge(nullptr, BDF_NONE));
    bridge_rec *const bridge = bridge_at_or_above(bdf);
    if (bridge == nullptr)
        return PCI_ERR_NO_DEVICE;
    one(bridge);
    return PCI_OK;
}

}  // namespace

bool fast_back_to_back(bridge_rec *bridge, int mode) {
    if (bridge == nullptr)
        return false;
    LOG_DEBUG(0, "%s(B%u:D%u:F%u, %d), %u devices", "fast_back_to_back", BDF_ARGS(bridge->bdf),
              mode, function_count(bridge));
    for (const fb2b_mode_t &each : modes)
        if (each.mode == mode)
            return run(bridge, each);
    return false;
}

void _enable_fb2b(bridge_rec *bridge) {
    const unsigned bus = secondary_bus_of(bridge);
    LOG_DEBUG(0, "%s(B%u:D%u:F%u)", "_enable_fb2b", BDF_ARGS(bridge->bdf));
    if (!fast_back_to_back(bridge, FB2B_TEST)) {
        LOG_DEBUG(0, "Fast back-to-back transfers not supported for bus %u", bus);
        return;
    }
    const bool enabled = fast_back_to_back(bridge, FB2B_ENABLE);
    LOG_DEBUG(0, "Fast back-to-back transfers supported for bus %u, enable %s", bus,
              enabled ? "ok" : "failed");
}

void _disable_fb2b(bridge_rec *bridge) {
    const unsigned bus = secondary_bus_of(bridge);
    LOG_DEBUG(0, "%s(B%u:D%u:F%u)", "_disable_fb2b", BDF_ARGS(bridge->bdf));
    fast_back_to_back(bridge, FB2B_DISABLE);
    LOG_DEBUG(0, "Fast back-to-back transfers disabled for bus %u", bus);
}

int enable_fb2b(bridge_rec *first) {
    walk_bridges(first, "enable_fb2b", _enable_fb2b);
    return PCI_OK;
}

int disable_fb2b(bridge_rec *first) {
    walk_bridges(first, "disable_fb2b", _disable_fb2b);
    return PCI_OK;
}

int enable_fb2b_feature(bdf_t bdf) {
    return apply_by_bdf(bdf, _enable_fb2b, enable_fb2b);
}

int disable_fb2b_feature(bdf_t bdf) {
    return apply_by_bdf(bdf, _disable_fb2b, disable_fb2b);
}

}  // namespace enable_features
