// The content of the reports about a hierarchy: everything below one root port, which can have only
// one payload size.
#pragma once

#include <optional>
#include <vector>

#include "host/machine/machine.h"
#include "host/report/function_report.h"

namespace host {

// Functions are given by their index, sizes in bytes.
struct HierarchyReport {
    std::size_t root_port = 0;
    std::vector<std::size_t> members;   // ascending; the root port, all below it, and bridges that
                                        // may lead into it
    std::optional<unsigned> path_max;   // the largest size that all of it supports
    std::vector<std::size_t> limiters;  // the members that support no more, ascending
    std::vector<std::size_t> limiting_devices;  // the first of them in each device
    std::optional<unsigned> possible;  // the path maximum, always larger, without the limiters and
                                       // all below them; where the root port is one of them, of
                                       // what is left, below another one; empty if nothing is
};

// Returns the hierarchies of the machine that `functions` describe, in the order of their root
// ports. The sizes that functions support are those before the modules were loaded.
std::vector<HierarchyReport> find_hierarchies(const std::vector<FunctionReport> &functions,
                                              const Machine &machine);

// Returns by how many percent the share of payload in a link's bytes grows from packets of `from`
// bytes to packets of `to` bytes: each packet carries 24 bytes more, of framing, sequence number,
// header of four double words and LCRC.
double payload_gain(unsigned from, unsigned to);

}  // namespace host
