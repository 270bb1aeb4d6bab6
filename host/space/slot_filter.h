// Picks functions by their address, in the form that lspci -s takes.
#pragma once

#include <optional>
#include <string>

#include "host/base/address.h"

namespace host {

// Every part that is given must match.
struct SlotFilter {
    std::string text;  // as it was written
    std::optional<unsigned> domain;
    std::optional<unsigned> bus;
    std::optional<unsigned> device;
    std::optional<unsigned> function;

    bool matches(unsigned domain_of_function, RoutingId id) const;
};

// Reads "[[[[domain]:]bus]:][device][.[function]]", hexadecimal, where "*" or nothing stands for
// any. Throws InputError, which names the text.
SlotFilter parse_slot_filter(const std::string &text);

}  // namespace host
