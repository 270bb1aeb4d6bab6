// What the reports say, as plain data: every function with its place in the tree and its state
// before the modules were loaded and at the end.
#pragma once

#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "host/base/log.h"
#include "host/modules/module_loader.h"
#include "host/report/feature_state.h"

namespace host {

struct FunctionReport {
    Function function;
    std::string address;                // as lspci writes it
    std::string name;                   // lspci's text behind the address
    std::string physical;               // address of a virtual function's physical one
    std::optional<std::size_t> bridge;  // index of the bridge above, empty on a root bus
    bool managed = true;                // by this server instance
    FeatureState before;
    FeatureState after;
    bool removed = false;    // gone, and by an event
    bool completed = false;  // the host has set its payload size (--complete)

    bool gone() const { return before.reachable && !after.reachable; }
    bool changed() const { return before != after; }
};

// All that is below one root port, which can only have one payload size.
struct HierarchyReport {
    std::size_t root_port;                  // index of the function
    std::optional<unsigned> path_max;       // bytes: the largest size that all of it supports
    std::optional<std::size_t> limited_by;  // index of the first function, from the root port down,
                                            // that supports no more
    std::optional<unsigned> current;        // bytes: what the root port is set to at the end
};

struct Report {
    std::vector<FunctionReport> functions;     // ascending by routing ID
    std::vector<HierarchyReport> hierarchies;  // ascending by root port
    // Hierarchies that are not written, by root port, with the reason for people.
    std::map<RoutingId, std::string> left_alone;
    std::vector<ModuleResult> modules;
    LogCounts messages;
};

// The index of the root port that a function is or is below; nothing for others.
std::optional<std::size_t> root_port_of(const Report &report, std::size_t function);

// Describes the machine that is served and its state before anything has happened. `domain` is the
// one that its functions belong to.
Report begin_report(Machine &machine, unsigned domain);

// Brings the functions up to date. One that has come meanwhile has no state before: what it came
// with counts as that.
void refresh_report(Report &report, Machine &machine, unsigned domain);

// Reads the state that the functions have now.
void read_states(Report &report, const Machine &machine);

// Among some functions, those whose settings are no longer what the report's `after` has.
struct ChangeCounts {
    std::size_t ecrc = 0;
    std::size_t mps = 0;
};
ChangeCounts count_changes(const Report &report, const Machine &machine,
                           std::span<const RoutingId> ids);

// Adds the state at the end.
void end_report(Report &report, const Machine &machine, std::vector<ModuleResult> modules);

}  // namespace host
