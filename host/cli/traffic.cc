#include "host/cli/traffic.h"

#include <algorithm>
#include <set>

#include "host/base/address.h"
#include "host/base/child_process.h"
#include "host/base/log.h"
#include "host/base/module_faults.h"
#include "host/base/words.h"
#include "host/cli/run.h"
#include "host/cli/start_up.h"
#include "host/machine/open_machine.h"
#include "host/report/report.h"
#include "platform/pci_access.h"
#include "platform/pci_regs.h"

namespace host {
namespace {

// Returns the driver of a function that may have traffic; empty when it has none. Ports and bridges
// are left out: they have the kernel's own driver, which has no payload to send.
std::string busy_driver(LiveSpace &live, const Function &function) {
    std::uint32_t command = 0;
    if (function.is_bridge() ||
        live.recall(function.id(), pci::COMMAND, 2, Changes::BY_WRITES, command) != PCI_OK ||
        (command & pci::COMMAND_BUS_MASTER) == 0)
        return "";
    return live.sysfs().driver(function.id());
}

using Drivers = std::map<RoutingId, std::string>;

// Returns the drivers of the functions that may have traffic.
Drivers busy_drivers(LiveSpace &live, const Machine &machine) {
    Drivers drivers;
    for (const Function *function : machine.functions())
        if (std::string driver = busy_driver(live, *function); !driver.empty())
            drivers[function->id()] = std::move(driver);
    return drivers;
}

// A drive may have hundreds of virtual functions: only the first few are named.
constexpr std::size_t MOST_NAMES = 8;

// "02:00.0 (nvme)", "03:00.0 (igb)", by root port.
using Traffic = std::map<RoutingId, std::vector<std::string>>;

Traffic traffic_below(const Report &report, const Drivers &busy) {
    Traffic traffic;
    for (std::size_t i = 0; i < report.functions.size(); ++i) {
        const Function &function = report.functions[i].function;
        const auto root_port = root_port_of(report.functions, i);
        if (const auto driver = busy.find(function.id()); root_port && driver != busy.end())
            traffic[report.functions[*root_port].function.id()].push_back(
                bdf_text(function.bdf) + " (" + driver->second + ")");
    }
    return traffic;
}

// Returns the root ports of the hierarchies in which a payload size has changed.
std::set<RoutingId> payloads_changed(const Report &report) {
    std::set<RoutingId> changed;
    for (std::size_t i = 0; i < report.functions.size(); ++i)
        if (const auto root_port = root_port_of(report.functions, i);
            root_port && report.functions[i].before.mps != report.functions[i].after.mps)
            changed.insert(report.functions[*root_port].function.id());
    return changed;
}

// Plans on a snapshot what start-up would do to this machine.
Report planned(const Options &options, const std::vector<ModuleEntry> &modules,
               ConfigImage &snapshot, unsigned domain) {
    const std::unique_ptr<Machine> machine = open_machine(snapshot);
    const ExitWatch exit_watch(EXIT_BAD_INPUT);
    const Serving serving(*machine, options.managed, options.complete);
    Report report = begin_report(*machine, domain);
    end_report(report, *machine, start_up(modules));
    return report;
}

// Writes a line for each hierarchy to the pipe from the child, its root port's routing ID in front.
std::string conflicts(const Report &report, const Drivers &busy) {
    const Traffic traffic = traffic_below(report, busy);
    std::string text;
    for (const RoutingId root_port : payloads_changed(report))
        if (const auto found = traffic.find(root_port); found != traffic.end())
            text += std::to_string(root_port) + " traffic on " + listed(found->second, MOST_NAMES) +
                    '\n';
    return text;
}

LeftAlone parse_conflicts(const std::string &text) {
    LeftAlone left_alone;
    for (const std::string_view line : split(trim(text), '\n'))
        if (const auto root_port = parse_number(line.substr(0, line.find(' '))))
            left_alone[static_cast<RoutingId>(*root_port)] = line.substr(line.find(' ') + 1);
    return left_alone;
}

// The snapshot is made before the child, whose accesses no report would count.
LeftAlone conflicts_of_plan(const Options &options, const std::vector<ModuleEntry> &modules,
                            const LiveSpace &live, const Drivers &busy) {
    const std::unique_ptr<ConfigImage> snapshot = live.snapshot();
    const unsigned domain = live.sysfs().domain();
    try {
        return parse_conflicts(in_child_process(
            [&] { return conflicts(planned(options, modules, *snapshot, domain), busy); }));
    } catch (const ChildError &error) {
        throw TrafficError(std::string("the plan that is made first has ") + error.what() +
                           ": nothing has been written");
    }
}

void refuse_traffic(const LeftAlone &conflicts) {
    std::vector<std::string> lines;
    for (const auto &[root_port, reason] : conflicts)
        lines.push_back("the hierarchy of " + bdf_text(root_port) +
                        " would get another payload size under " + reason +
                        ": nothing has been written (--busy skip leaves such hierarchies alone; "
                        "hoplar(8): SAFETY)");
    throw TrafficError(lines);
}

}  // namespace

LeftAlone leave_busy_alone(const Options &options, const std::vector<ModuleEntry> &modules,
                           const MachineSource &source, const Machine &machine) {
    if (!source.is_written() || modules.empty())
        return {};
    const Drivers busy = busy_drivers(*source.live, machine);
    if (busy.empty())
        return {};
    if (options.busy == Busy::WRITE) {
        log_warning(functions_text(busy.size()) +
                    " with a driver bound and Bus Master on: no order of writes is safe for a "
                    "payload size under live traffic (hoplar(8): SAFETY)");
        return {};
    }
    LeftAlone left_alone = conflicts_of_plan(options, modules, *source.live, busy);
    if (options.busy == Busy::REFUSE && !left_alone.empty())
        refuse_traffic(left_alone);
    for (const auto &[root_port, reason] : left_alone)
        log_warning("the hierarchy of " + bdf_text(root_port) + " is left alone: " + reason);
    return left_alone;
}

ManagedBuses managed_buses(const Options &options, const LeftAlone &left_alone,
                           const Machine &machine) {
    ManagedBuses managed = options.managed;
    for (const auto &[root_port, reason] : left_alone)
        if (const Function *port = machine.find(root_port))
            for (unsigned bus = port->secondary; bus <= port->subordinate; ++bus)
                managed[bus] = false;
    return managed;
}

}  // namespace host
