// The content of the reports, as plain data: every function with its place in the tree and its
// state before the modules were loaded and at the end.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "host/base/log.h"
#include "host/modules/module_loader.h"
#include "host/report/finding.h"
#include "host/report/function_report.h"
#include "host/report/hierarchy_report.h"
#include "host/report/request_report.h"
#include "host/space/config_files.h"
#include "host/space/sysfs.h"

namespace host {

struct FileChecksum {
    std::string file;  // absolute, as safe_text() shows it
    std::uint32_t checksum;
};

struct Report {
    unsigned domain = 0;                       // of all functions
    std::vector<FunctionReport> functions;     // ascending by routing ID
    std::vector<HierarchyReport> hierarchies;  // ascending by root port
    std::vector<Finding> found;                // before the modules were loaded
    std::vector<Finding> findings;             // at the end
    // Hierarchies that are not written, by root port, with the reason as users read it.
    std::map<RoutingId, std::string> left_alone;
    // Drivers that are bound at the end, by function; see read_drivers().
    std::map<RoutingId, std::string> drivers;
    std::vector<FileChecksum> feature_files;  // that can be read, each once
    std::vector<ModuleResult> modules;
    std::vector<RequestReport> requests;  // the lines of feature files, in the order of reading
    std::optional<Accesses> accesses;     // to this machine; a dump has none
    LogRecord messages;
    bool narrowed = false;  // to functions that are selected, see selection.h
};

// Describes the machine that is served and its state before anything has happened. Its functions
// belong to `domain`.
Report begin_report(Machine &machine, unsigned domain);

// Updates the functions. The state of those that have come is read, and is the state before unless
// the same function was there earlier. The states of others stay as they were read last.
void refresh_report(Report &report, Machine &machine, unsigned domain,
                    std::span<const RoutingId> come = {});

// Reads the present state of the functions.
void read_states(Report &report, const Machine &machine);

// The number of functions whose settings differ from the report's `after`.
struct ChangeCounts {
    std::size_t ecrc = 0;
    std::size_t mps = 0;
};
ChangeCounts count_changes(const Report &report, const Machine &machine,
                           std::span<const RoutingId> ids);

// Adds the state at the end.
void end_report(Report &report, const Machine &machine, std::vector<ModuleResult> modules);

// Reads which drivers are bound to the functions of this machine. A dump tells nothing of them.
void read_drivers(Report &report, const Sysfs &sysfs);

}  // namespace host
