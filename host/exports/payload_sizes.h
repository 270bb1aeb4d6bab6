// The payload sizes of functions and of the ports above them. Sizes are coded as in Device Control,
// Max_Payload_Size: n stands for 128 << n bytes.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/machine/machine.h"

namespace host {

constexpr unsigned LOWEST_PAYLOAD = 0;  // 128 bytes, which everything supports

// Returns the bridge on a root bus that a function is or is below; null when there is none.
const bridge_rec *topmost_bridge(const Machine &machine, RoutingId id);

unsigned payload_code(std::uint16_t devctl);

// Returns "256 bytes".
std::string bytes_text(unsigned code);

// Return Device Control, as ConfigSpace::recall() does or read now. PCI_ERR_NOT_SUPPORTED when the
// function has no such register.
using DevctlReader = pci_err_t (*)(const Function &function, std::uint16_t &devctl);
pci_err_t recall_devctl(const Function &function, std::uint16_t &devctl);
pci_err_t read_devctl(const Function &function, std::uint16_t &devctl);

// Writes `devctl`, as it has been read right before, with another payload size; `after` is the size
// that the function then has.
pci_err_t write_payload(const Function &function, std::uint16_t devctl, unsigned code,
                        unsigned &after);

// The payload size of the port above a function, the lowest where several ports may be it.
struct Bound {
    bdf_t port;
    unsigned code;
    pci_err_t error;  // of the port that cannot be read; `code` is then LOWEST_PAYLOAD
};

// Returns the bound by ports_above(); nullopt without ports, on a root bus.
std::optional<Bound> lowest_bound(const Machine &machine, const std::vector<bdf_t> &ports,
                                  DevctlReader read = recall_devctl);
std::optional<Bound> lowest_bound(const Machine &machine, const Function &function,
                                  DevctlReader read = recall_devctl);

// Returns ", while the port above, 00:01.0, is set to 128 bytes".
std::string port_text(const Bound &bound);

// Returns "01:00.0: payload size of 512 bytes, while the port above, 00:01.0, is set to 128 bytes".
std::string excess_text(const Function &function, unsigned code, const Bound &bound);

}  // namespace host
