// What the reports say, as plain data: every function with its place in the tree and its state
// before the modules were loaded and at the end.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/cli/feature_state.h"
#include "host/cli/module_loader.h"
#include "host/server/log.h"

namespace host {

struct FunctionReport {
    Function function;
    std::string address;                // as lspci writes it
    std::string name;                   // lspci's text behind the address
    std::optional<std::size_t> bridge;  // index of the bridge above, empty on a root bus
    bool managed = true;                // by this server instance
    FeatureState before;
    FeatureState after;

    bool removed() const { return before.reachable && !after.reachable; }
    bool changed() const { return before != after; }
};

struct Report {
    std::vector<FunctionReport> functions;  // ascending by routing ID
    std::vector<ModuleResult> modules;
    LogCounts messages;
};

// Describes the machine that is served and its state before anything has happened. `domain` is the
// one that its functions belong to.
Report begin_report(Machine &machine, unsigned domain);

// Adds the state at the end.
void end_report(Report &report, const Machine &machine, std::vector<ModuleResult> modules);

}  // namespace host
