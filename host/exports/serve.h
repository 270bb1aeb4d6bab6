// Which machine the exports answer for, and what they keep about it.
#pragma once

#include <vector>

#include "host/exports/complete_hierarchies.h"
#include "host/exports/event_records.h"
#include "host/exports/find_functions.h"
#include "host/exports/msix_tables.h"
#include "host/exports/payload_guard.h"
#include "host/exports/payload_mismatches.h"
#include "host/machine/machine.h"

namespace host {

// Buses that this server instance manages.
using ManagedBuses = std::vector<bool>;  // 256 of them

// Everything that exports give out and keep goes with the machine that it is about.
struct Served {
    Machine &machine;
    const ManagedBuses managed;
    const bool complete;  // --complete
    FoundFunctions found_functions{};
    MsixTables msix_tables{};
    EventRecords event_records{};
    PayloadWrites payload_writes{};
    GivenPayloads given_payloads{};
    PayloadMismatches payload_mismatches{};
};

// Makes `machine`, which must outlive its use, the one that every export answers for; null: no
// functions. With `complete`, see complete_hierarchies.h. Event records and vector tables of the
// machine served before become invalid. Not thread-safe against calls of exports.
void serve(Machine *machine, ManagedBuses managed = ManagedBuses(256, true), bool complete = false);

// The exports answer for a machine as long as this lives.
class Serving {
public:
    explicit Serving(Machine &machine, const ManagedBuses &managed = ManagedBuses(256, true),
                     bool complete = false) {
        serve(&machine, managed, complete);
    }
    ~Serving() { serve(nullptr); }
    Serving(const Serving &) = delete;
    Serving &operator=(const Serving &) = delete;
};

// The machine served with what is kept about it, null when there is none.
Served *served();

// Whether this instance manages a bus; without a machine, every bus.
bool manages(unsigned bus);

}  // namespace host
