// The machine that the exports answer for, and what they keep about it.
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

// The buses that this server instance manages.
using ManagedBuses = std::vector<bool>;  // 256 of them

// Everything that exports return or keep belongs to the machine that it is about, and goes with it.
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

// Makes `machine` the one that all exports use; null: none. It must outlive its use. With
// `complete`, see complete_hierarchies.h. Records and vector tables of the previous machine become
// invalid. Not thread-safe against calls of exports.
void serve(Machine *machine, ManagedBuses managed = ManagedBuses(256, true), bool complete = false);

// Serves a machine as long as this object lives.
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

// Returns the machine served, with what is kept about it; null when there is none.
Served *served();

// Returns true when this instance manages the bus; without a machine, for every bus.
bool manages(unsigned bus);

}  // namespace host
