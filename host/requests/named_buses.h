// Finds the buses of the functions that feature files name.
#pragma once

#include <bitset>
#include <span>
#include <string_view>

#include "host/requests/judge.h"

namespace host {

using Buses = std::bitset<256>;

// Returns the buses of all functions that lines name; lines for all functions name none. Without a
// file, or where one cannot be read, every bus counts as named.
Buses named_buses(std::span<const FeatureFile> files);

// Returns true for a module's warning that a request was dropped because the function, or its
// hierarchy, cannot take it, where the function is on none of these buses: a line for all functions
// asks for what each can have, so that nothing was asked in vain.
bool is_no_loss(std::string_view warning, const Buses &named);

}  // namespace host
