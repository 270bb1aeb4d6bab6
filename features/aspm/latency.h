// Which low-power states a link may use: those that both of its ends support, and whose exit
// latency is not above what the endpoints below the link accept.
//
// Nothing here writes a register, keeps state or takes a lock: records of the bridge tree are read
// as they are found. Latencies are nanoseconds, NO_LATENCY_LIMIT stands for any.
#pragma once

#include <cstdint>

#include "platform/bridge.h"
#include "platform/capability.h"
#include "platform/types.h"

namespace enable_features {

// ASPM levels, as ASPM Support and ASPM Control hold them; a level is also the set of its states.
constexpr std::uint32_t ASPM_NONE = 0;
constexpr std::uint32_t ASPM_L0S = 1;
constexpr std::uint32_t ASPM_L1 = 2;
constexpr std::uint32_t ASPM_L0S_L1 = 3;

constexpr std::uint32_t NO_LATENCY_LIMIT = 0xFFFF'FFFF;

// Below, `bridge` is the port above the link, with a PCI Express capability; `device_cap` is the
// capability of the device below it; `state` is ASPM_L0S or ASPM_L1.

// Exit latency of the link: that of its slower end, and for L1 1,000 more for each bridge on the
// chain of first children below `bridge`. 0 with `*latency` set, or the code of the read that
// failed, and `*latency` as it was: a debug message shows it, so it is to hold a value before.
pci_err_t calc_exit_latency(bridge_rec *bridge, pcie_cap_t *device_cap, std::uint32_t state,
                            std::uint32_t *latency);

// The largest latency that an endpoint on the last bus of the chain of first children accepts;
// NO_LATENCY_LIMIT when the chain meets a bridge to conventional PCI; 0 when nothing is found.
std::uint32_t acceptable_ep_latency(bridge_rec *bridge, std::uint32_t state);

// Level to program on both ends, whose ASPM Support fields are `up_support` (the bridge's) and
// `down_support`. What cannot be read counts as too slow.
std::uint32_t find_aspm_level(bridge_rec *bridge, std::uint32_t up_support, pcie_cap_t *device_cap,
                              std::uint32_t down_support);

}  // namespace enable_features
