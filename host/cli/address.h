// Function addresses as lspci writes them: "[domain:]bus:device.function", hexadecimal.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "host/machine/config_space.h"

namespace host {

struct Address {
    std::optional<unsigned> domain;
    RoutingId id;
};

// Nothing for a text that is no address.
std::optional<Address> parse_address(std::string_view text);

// Text of a function's address, in device and function form also for ARI functions, and with the
// domain only when that is not 0: as lspci does.
std::string format_address(unsigned domain, RoutingId id);

}  // namespace host
