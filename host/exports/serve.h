// Which machine the exports of the access library and of the server answer for.
#pragma once

#include <cstdint>
#include <vector>

#include "host/machine/machine.h"

namespace host {

// Buses that this server instance manages.
using ManagedBuses = std::vector<bool>;  // 256 of them

// From now on every export answers for `machine`, which must outlive its use; null: no functions.
// What exports gave out before stays valid as their declarations say, except records and vector
// tables of the machine served before. Not while another thread is inside an export.
void serve(Machine *machine, ManagedBuses managed = ManagedBuses(256, true));

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

// The machine served, null when there is none.
Machine *served();

// Whether this instance manages a bus.
bool manages(unsigned bus);

// Counts calls of serve(), so that what is kept about a machine can be dropped with it.
std::uint64_t serve_count();

}  // namespace host
