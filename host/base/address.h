// Addresses of PCI functions: how messages print them and how users write them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/types.h"

namespace host {

// Bits 15:0 of a bdf_t, by which a configuration access is routed.
using RoutingId = std::uint16_t;
constexpr std::size_t ROUTING_IDS = 0x10000;

// Returns "04:00.0", as lspci writes it; an ARI function in device and function form too.
std::string bdf_text(bdf_t bdf);

// A module's message with lspci's form behind each address: "B58:D0:F0 [3a:00.0]", "B2:D0:Fz
// [02:00.*]".
std::string with_lspci_addresses(std::string_view text);

// Returns the bus of the first address in a module's message; nullopt without one.
std::optional<unsigned> bus_in(std::string_view text);

// Returns "0000".
std::string domain_text(unsigned domain);

// Returns "0a".
std::string bus_text(unsigned bus);

// Returns a function's address, with its domain where that is not 0, as lspci does.
std::string format_address(unsigned domain, RoutingId id);

struct Address {
    std::optional<unsigned> domain;
    RoutingId id;
};

// Reads "[domain:]bus:device.function", hexadecimal; nullopt for any other text.
std::optional<Address> parse_address(std::string_view text);

}  // namespace host
