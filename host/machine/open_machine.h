// Machines from configuration space, and the functions in them by their names.
#pragma once

#include <memory>
#include <string_view>

#include "host/machine/machine.h"

namespace host {

// The machine that a configuration space shows; what is odd about it, now or after an update, is
// said in warnings.
std::unique_ptr<Machine> open_machine(ConfigSpace &space);

// The function that `address` names ("[domain:]bus:device.function", of the domain served) and that
// answers. Throws InputError with the reason alone when there is none.
const Function &named_function(const Machine &machine, unsigned domain, std::string_view address);

}  // namespace host
