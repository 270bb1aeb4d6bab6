// A function as its own registers describe it.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "host/space/capability_walk.h"
#include "host/space/config_space.h"
#include "platform/types.h"

namespace host {

// Read once, when the machine is made or the function is added to it.
struct Function {
    bdf_t bdf;  // as it is enumerated, in plain or ARI form
    // False for all ones in Vendor ID, and for a virtual function. Nothing below is set then,
    // except vendor, device, class_code and physical of a virtual function.
    bool answers;
    std::uint16_t vendor;
    std::uint16_t device;
    std::uint32_t class_code;  // 24 bits
    std::uint8_t header_type;  // without the multi-function bit
    bool multi_function;       // Header Type, Multi-Function Device, of function 0 of its device
    std::uint8_t secondary;    // of bridges (Header Layout 1 and 2) only, else 0
    std::uint8_t subordinate;
    std::optional<std::uint8_t> port_type;  // PCI Express functions only
    std::uint8_t mpss;  // Device Capabilities, Max_Payload_Size Supported, as coded there; else 0
    std::optional<RoutingId> physical;  // the physical function of a virtual one
    std::vector<CapPosition> caps;      // in list order
    std::vector<CapPosition> ext_caps;  // in list order

    RoutingId id() const { return pci::routing_id_of(bdf); }
    bool is_bridge() const { return header_type == 1 || header_type == 2; }
    std::optional<std::uint16_t> cap(std::uint8_t cap_id) const;  // offset of the first one
    std::optional<std::uint16_t> ext_cap(std::uint16_t cap_id) const;

    bool operator==(const Function &) const = default;
};

// Reads the facts that one function's own registers tell. Facts that depend on other functions are
// filled in after all have been read: the ARI form, multi_function of functions above 0, and
// `physical`.
Function read_function(ConfigSpace &space, RoutingId id);

// Returns true when the bridge forwards requests to functions above 7 of its downstream component:
// Device Control 2, ARI Forwarding Enable.
bool forwards_ari(ConfigSpace &space, const Function &bridge);

}  // namespace host
