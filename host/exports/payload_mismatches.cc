#include "host/exports/payload_mismatches.h"

#include <algorithm>
#include <optional>
#include <set>

#include "host/base/address.h"
#include "host/base/log.h"
#include "host/exports/payload_sizes.h"
#include "host/exports/serve.h"

namespace host {
namespace {

std::string excess(const Function &function, unsigned code, const Bound &port) {
    return excess_text(function, code, port) + ": larger packets of this function are lost";
}

// Describes a function below some port that is set to more.
std::string shortfall(const Function &function, unsigned code, const Bound &port) {
    return bdf_text(function.bdf) + ": payload size of " + bytes_text(code) + ", below " +
           bdf_text(port.port) + ", which is set to " + bytes_text(port.code) +
           ": larger packets to this function are lost";
}

// Returns the nearest port above a function that is set to more than `code`. Two bridges of which
// each claims the bus that the other is on may be above each other.
std::optional<Bound> larger_port(const Machine &machine, const Function &function, unsigned code) {
    std::set<bdf_t> seen;
    for (auto port = lowest_bound(machine, function);
         port && !port->error && seen.insert(port->port).second;) {
        if (port->code > code)
            return port;
        const Function *const next = machine.find(port->port);
        port = next ? lowest_bound(machine, *next) : std::nullopt;
    }
    return std::nullopt;
}

struct Setting {
    unsigned code;
    Bound port;  // the one above
};

// Returns nullopt where there is no port above, or one of the two cannot be read.
std::optional<Setting> setting_of(const Machine &machine, const Function &function) {
    std::uint16_t devctl = 0;
    const auto port = lowest_bound(machine, function);
    if (!port || port->error || recall_devctl(function, devctl) != PCI_OK)
        return std::nullopt;
    return Setting{.code = payload_code(devctl), .port = *port};
}

// Returns an empty text when no packet can be lost.
std::string mismatch(const Machine &machine, const Function &function, const Setting &setting) {
    if (setting.code > setting.port.code)
        return excess(function, setting.code, setting.port);
    const auto larger = larger_port(machine, function, setting.code);
    return larger ? shortfall(function, setting.code, *larger) : "";
}

// Returns every function with a payload size in a hierarchy with one of `ids`.
std::set<const Function *> related(const Machine &machine, std::span<const RoutingId> ids) {
    std::set<const bridge_rec *> tops;
    for (const RoutingId id : ids)
        if (const bridge_rec *top = topmost_bridge(machine, id))
            tops.insert(top);
    std::set<const Function *> found;
    for (const bridge_rec *top : tops)
        for (const Function *function : machine.below(*top))
            if (machine.reachable(*function) && function->port_type)
                found.insert(function);
    return found;
}

}  // namespace

void warn_about_payloads_found() {
    Served *const now = served();
    if (!now)
        return;
    const std::scoped_lock guard(now->payload_writes.one_repair);
    for (const Function *function : now->machine.functions()) {
        if (!now->machine.reachable(*function) || !function->port_type)
            continue;
        const auto setting = setting_of(now->machine, *function);
        if (!setting)
            continue;
        now->payload_mismatches[function->id()] = mismatch(now->machine, *function, *setting);
        if (setting->code > setting->port.code &&
            !now->payload_writes.failed.contains(function->id()))
            log_warning(excess_text(*function, setting->code, setting->port) +
                        ": left as it was found");
    }
}

void report_payload_mismatches(std::span<const RoutingId> come) {
    Served *const now = served();
    if (!now)
        return;
    const std::scoped_lock guard(now->payload_writes.one_repair);
    for (const Function *function : related(now->machine, come)) {
        const auto setting = setting_of(now->machine, *function);
        const std::string text = setting ? mismatch(now->machine, *function, *setting) : "";
        std::string &before = now->payload_mismatches[function->id()];
        const bool has_come = std::ranges::find(come, function->id()) != come.end();
        if (!text.empty() && (has_come || text != before))
            log_error(text);
        before = text;
    }
}

}  // namespace host
