#include "host/machine/open_machine.h"

#include "host/base/address.h"
#include "host/base/input.h"
#include "host/base/log.h"

namespace host {

std::unique_ptr<Machine> open_machine(ConfigSpace &space) {
    return std::make_unique<Machine>(space, log_warning);
}

const Function &named_function(const Machine &machine, unsigned domain, std::string_view address) {
    const auto parsed = parse_address(address);
    if (!parsed)
        throw InputError("not a function's address ([domain:]bus:device.function)");
    if (parsed->domain.value_or(domain) != domain)
        throw InputError("not in the domain that is served");
    const Function *found = machine.known(parsed->id);
    if (!found)
        throw InputError("no such function");
    if (found->physical)
        throw InputError("a virtual function, which is left alone");
    if (!found->answers)
        throw InputError("the function does not answer");
    if (!machine.reachable(*found))
        throw InputError("the function has been removed");
    return *found;
}

}  // namespace host
