// Machines from configuration space, and the functions in them by their names.
#pragma once

#include <filesystem>
#include <memory>
#include <string_view>

#include "host/access/serve.h"
#include "host/machine/dump.h"

namespace host {

// Reads a dump; what it lacks is said in warnings. Throws DumpError.
Dump open_dump(const std::filesystem::path &file, unsigned domain);

// The machine that a configuration space shows; what is odd about it, now or after an update, is
// said in warnings.
std::unique_ptr<Machine> open_machine(ConfigSpace &space);

void warn_about_other_domains(const std::string &source, std::size_t count, unsigned domain);

// The exports answer for a machine as long as this lives.
class Serving {
public:
    explicit Serving(Machine &machine, const ManagedBuses &managed = ManagedBuses(256, true)) {
        serve(&machine, managed);
    }
    ~Serving() { serve(nullptr); }
    Serving(const Serving &) = delete;
    Serving &operator=(const Serving &) = delete;
};

// The function that `address` names ("[domain:]bus:device.function", of the domain served) and that
// answers. Throws InputError with the reason alone when there is none.
const Function &named_function(const Machine &machine, unsigned domain, std::string_view address);

}  // namespace host
