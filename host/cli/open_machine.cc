#include "host/cli/open_machine.h"

#include "host/cli/address.h"
#include "host/cli/text.h"
#include "host/machine/bdf_text.h"
#include "host/server/log.h"

namespace host {

void warn_about_other_domains(const std::string &source, std::size_t count, unsigned domain) {
    if (count != 0)
        log_warning(source + ": " + functions_text(count) + " of other domains left out, domain " +
                    domain_text(domain) + " is served (choose with --domain)");
}

Dump open_dump(const std::filesystem::path &file, unsigned domain) {
    Dump dump = read_dump(file, domain);
    warn_about_other_domains(file.string(), dump.other_domains, domain);
    if (dump.header_only != 0)
        log_warning(file.string() + ": " + functions_text(dump.header_only) +
                    " without capability data, nothing can be set on them; a full dump: "
                    "sudo lspci -xxxx > FILE");
    return dump;
}

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
    if (!found->answers)
        throw InputError("the function does not answer");
    if (!machine.reachable(*found))
        throw InputError("the function has been removed");
    return *found;
}

}  // namespace host
