// The operations that hoplar-ops can run.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "host/machine/machine.h"

namespace ops {

// One operation, ready to run.
struct Request {
    pci_err_t (*run)(host::Machine &machine, bdf_t bdf, std::ostream &out);
    bdf_t bdf;  // as it is enumerated; BDF_NONE: all
    bool disturbs_driver;
};

// What the words ask for on a machine. Throws host::InputError, which names the word.
Request parse_request(const std::vector<std::string> &words, const host::Machine &machine,
                      unsigned domain);

// A line for each operation, for the help text.
std::string operations_help();

}  // namespace ops
