// Makes machines from configuration space, and finds functions in them by address.
#pragma once

#include <memory>
#include <string_view>

#include "host/machine/machine.h"

namespace host {

// Reads the machine that a configuration space shows. Wrong bus numbers are logged as warnings, now
// or after an update.
std::unique_ptr<Machine> open_machine(ConfigSpace &space);

// Returns the function that `address` names ("[domain:]bus:device.function", of the domain served)
// and that answers. Throws InputError with the reason alone when there is none.
const Function &named_function(const Machine &machine, unsigned domain, std::string_view address);

}  // namespace host
