// The rows of one report are kept until it has been read to its end.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace fleet {

// Sizes are in bytes. A machine may have 65536 functions, so these are small.
struct FunctionState {
    std::string address;
    std::size_t device;  // index in Devices
    std::optional<std::int64_t> supported, payload;
    std::optional<bool> generation, checking;  // of ECRC, enabled
    std::optional<bool> can_generate, can_check;
    bool ari;
};

struct Hierarchy {
    std::optional<std::int64_t> path_max, possible, after;
    std::optional<double> gain;  // percent
    std::vector<std::string> limiters;
};

struct Finding {
    std::string code, severity, address;
};

struct Request {
    std::string keyword, value, status, reason;  // empty: null
};

struct MachineReport {
    std::vector<FunctionState> functions;  // without virtual functions
    std::vector<Hierarchy> hierarchies;
    std::vector<Finding> findings;  // of the state at the end
    std::vector<Request> requests;  // that were not reached
    std::int64_t shown = 0, functions_of_machine = 0;

    bool is_partial() const { return shown < functions_of_machine; }
};

}  // namespace fleet
