// Adds reports up in a temporary database.
#pragma once

#include "tools/fleet/database.h"
#include "tools/fleet/devices.h"
#include "tools/fleet/machine_report.h"

namespace fleet {

// Machines with the same devices at the same places are of one model. Those of one model in the
// same state share one record of it and its count: each further one adds its name, and the requests
// that it has not reached.
class FleetStore {
public:
    FleetStore();

    void add(const MachineReport &report, const std::string &machine, const std::string &file);

    // Adds what can only be told when all reports have been read; add() may not follow.
    void finish(const Devices &devices, std::size_t unreadable);

    Database &database() { return database_; }

private:
    // Return the record's number.
    std::int64_t model_of(const MachineReport &report);
    std::int64_t content_of(const MachineReport &report, std::int64_t model);
    void add_content(const MachineReport &report, std::int64_t content);

    Database database_;
    Statement find_model_, insert_model_, insert_place_;
    Statement find_content_, insert_content_, count_content_;
    Statement insert_state_, insert_finding_, insert_hierarchy_, insert_limiter_;
    Statement insert_machine_, insert_request_;
};

}  // namespace fleet
