// What a feature file should make of a machine, worked out from the rules alone: the whole machine
// is looked through again for each question, and nothing of the program is used but the names of
// registers.
#pragma once

#include <map>
#include <string_view>
#include <vector>

#include "host/base/address.h"

namespace host::fuzz {

using Spaces = std::map<RoutingId, std::vector<std::uint8_t>>;

// Returns every function's bytes after start-up. `managed` has 256 buses.
Spaces expected_spaces(const Spaces &before, const std::vector<bool> &managed,
                       std::string_view features);

}  // namespace host::fuzz
