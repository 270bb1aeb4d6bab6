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

// Parses the words of the command line. Throws host::InputError, which names the bad word.
Request parse_request(const std::vector<std::string> &words, const host::Machine &machine,
                      unsigned domain);

// Returns a line for each operation, for the help text.
std::string operations_help();

}  // namespace ops
