// Addresses of PCI functions, as messages print them and people write them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/types.h"

namespace host {

// Bits 15:0 of a bdf_t: what a configuration access is routed by.
using RoutingId = std::uint16_t;
constexpr std::size_t ROUTING_IDS = 0x10000;

// "04:00.0", as lspci writes it: also an ARI function in device and function form.
std::string bdf_text(bdf_t bdf);

// "0000"
std::string domain_text(unsigned domain);

// "0a"
std::string bus_text(unsigned bus);

// A function's address with its domain where that is not 0: as lspci does.
std::string format_address(unsigned domain, RoutingId id);

struct Address {
    std::optional<unsigned> domain;
    RoutingId id;
};

// Reads "[domain:]bus:device.function", hexadecimal. Nothing for a text that is no address.
std::optional<Address> parse_address(std::string_view text);

}  // namespace host
