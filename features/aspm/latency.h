// Computes the low-power states that a link may use: those that both of its ends support, and whose
// exit latency is not above what the endpoints below the link accept.
//
// Nothing here writes a register, keeps state or takes a lock: records of the bridge tree are read
// as they are found. Latencies are in nanoseconds; NO_LATENCY_LIMIT stands for any.
#pragma once

#include <cstdint>

#include "platform/bridge.h"
#include "platform/capability.h"
#include "platform/types.h"

namespace enable_features {

// Values of Link Capabilities, ASPM Support, and of Link Control, ASPM Control; each bit is a
// state.
constexpr std::uint32_t ASPM_NONE = 0;
constexpr std::uint32_t ASPM_L0S = 1;
constexpr std::uint32_t ASPM_L1 = 2;
constexpr std::uint32_t ASPM_L0S_L1 = 3;

constexpr std::uint32_t NO_LATENCY_LIMIT = 0xFFFF'FFFF;

// In the functions below, `bridge` is the port above the link, with a PCI Express capability;
// `device_cap` is the capability of the downstream component; `state` is ASPM_L0S or ASPM_L1.

// Computes the exit latency of the link: that of its slower end, and for L1 1,000 more for each
// bridge on the chain of first children below `bridge`. Source: Link Capabilities, L0s Exit Latency
// and L1 Exit Latency. Returns 0 with `*latency` set, or the code of the read that failed, with
// `*latency` unchanged. Initialise `*latency`: a debug message prints it in either case.
pci_err_t calc_exit_latency(bridge_rec *bridge, pcie_cap_t *device_cap, std::uint32_t state,
                            std::uint32_t *latency);

// Returns the largest latency that an endpoint on the last bus of the chain of first children
// accepts; NO_LATENCY_LIMIT when the chain meets a bridge to conventional PCI; 0 when nothing is
// found. Source: Device Capabilities, Endpoint L0s and L1 Acceptable Latency.
std::uint32_t acceptable_ep_latency(bridge_rec *bridge, std::uint32_t state);

// Returns the ASPM Control value to program on both ends, whose ASPM Support fields are
// `up_support` (the bridge's) and `down_support`. What cannot be read counts as too slow.
std::uint32_t find_aspm_level(bridge_rec *bridge, std::uint32_t up_support, pcie_cap_t *device_cap,
                              std::uint32_t down_support);

}  // namespace enable_features
