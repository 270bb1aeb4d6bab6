#include "host/exports/payload_guard.h"

#include <algorithm>
#include <map>
#include <new>
#include <utility>
#include <vector>

#include "host/base/address.h"
#include "host/base/log.h"
#include "host/exports/payload_sizes.h"
#include "host/exports/serve.h"

namespace host {
namespace {

using Ids = std::set<RoutingId>;

// One call of keep_payloads_in_bounds().
class Repair {
public:
    Repair(const Machine &machine, Ids written)
        : machine_(machine), concerned_(std::move(written)), candidates_(candidates()) {}

    // Functions are checked in ascending order, so that ports come before what is below them. A
    // bridge that claims another one's bus may come after the functions that it bounds, which takes
    // another round, and so does a second try of what has failed. Only registers that change by
    // themselves take more rounds than there are sizes.
    void run() {
        constexpr unsigned MOST_ROUNDS = 8;
        for (unsigned round = 0; round < MOST_ROUNDS; ++round) {
            failures_.clear();
            if (!check_all() && (failures_.empty() || round > 0))
                return;
        }
    }

    // Returns why functions are still not in bounds.
    const std::map<RoutingId, std::string> &failures() const { return failures_; }

private:
    // Without a port among the written functions, only they are candidates.
    std::vector<const Function *> candidates() const {
        std::vector<const Function *> written;
        for (const RoutingId id : concerned_)
            if (const Function *function = machine_.find(id))
                written.push_back(function);
        return std::ranges::any_of(written, &Function::is_bridge) ? machine_.functions() : written;
    }

    // Returns true when any function has been lowered.
    bool check_all() {
        bool any_lowered = false;
        for (const Function *function : candidates_)
            if (machine_.reachable(*function) && function->port_type)
                any_lowered |= check(*function);
        return any_lowered;
    }

    bool check(const Function &function) {
        const auto is_concerned = [&](bdf_t bdf) {
            return concerned_.contains(pci::routing_id_of(bdf));
        };
        const std::vector<bdf_t> ports = machine_.bridges().ports_above(function.bdf);
        const bool was_written = is_concerned(function.bdf);
        if (!was_written && std::ranges::none_of(ports, is_concerned))
            return false;
        const auto bound = lowest_bound(machine_, ports);
        return bound && bring_in(function, *bound, was_written);
    }

    // A function that is gone, or has no such register, stands above nothing.
    bool bring_in(const Function &function, const Bound &bound, bool was_written) {
        std::uint16_t devctl = 0;
        pci_err_t error = recall_devctl(function, devctl);
        if (error == PCI_ERR_IO)
            error = recall_devctl(function, devctl);
        if (error == PCI_ERR_IO && was_written)
            failures_[function.id()] =
                bdf_text(function.bdf) + ": payload size cannot be read" + port_text(bound);
        if (error || payload_code(devctl) <= bound.code)
            return false;
        concerned_.insert(function.id());
        return lower(function, devctl, bound);
    }

    // Where the port cannot be read, the function gets the size that every function supports.
    bool lower(const Function &function, std::uint16_t devctl, const Bound &bound) {
        const std::string excess = excess_text(function, payload_code(devctl), bound);
        const unsigned code = std::min<unsigned>(bound.code, function.mpss);
        unsigned after = 0;
        if (read_devctl(function, devctl) != PCI_OK ||
            write_payload(function, devctl, code, after) != PCI_OK || after > bound.code) {
            failures_[function.id()] = excess + ": cannot be lowered";
            return false;
        }
        log_warning(excess + ": lowered to " + bytes_text(code));
        return true;
    }

    const Machine &machine_;
    Ids concerned_;  // written by modules, or lowered
    const std::vector<const Function *> candidates_;
    std::map<RoutingId, std::string> failures_;
};

// The port is read anew: the kernel may have changed it since the module chose the size.
pci_err_t admit(const Function &function, unsigned code) {
    const Machine &machine = served()->machine;
    const auto bound = lowest_bound(machine, function, read_devctl);
    const bool is_supported = code <= function.mpss;
    if (is_supported && (!bound || code <= bound->code))
        return PCI_OK;
    std::uint16_t now = 0;
    if (read_devctl(function, now) == PCI_OK && payload_code(now) == code)
        return PCI_OK;
    if (!is_supported)
        return PCI_ERR_INVALID;
    log_warning(excess_text(function, code, *bound) + ": not written");
    return bound->error ? bound->error : PCI_ERR_INVALID;
}

// Returns true when the function is above a port that still has the size that a module gave it.
bool is_above_given_size(Served &now, const Function &function) {
    std::uint16_t devctl = 0;
    if (read_devctl(function, devctl) != PCI_OK)
        return false;
    const auto is_below_given_size = [&](bdf_t port) {
        const auto bound = lowest_bound(now.machine, std::vector{port});
        if (bound->error || payload_code(devctl) <= bound->code)
            return false;
        const std::scoped_lock guard(now.given_payloads.lock);
        return now.given_payloads.by_modules.find(pci::routing_id_of(port)) == bound->code;
    };
    return std::ranges::any_of(now.machine.bridges().ports_above(function.bdf),
                               is_below_given_size);
}

}  // namespace

pci_err_t admit_payload(const Function &function, std::uint16_t devctl) {
    PayloadWrites &writes = served()->payload_writes;
    try {
        {
            const std::scoped_lock guard(writes.lock);
            writes.written.at(function.id()) = true;
        }
        note_given_payload(function, devctl);
        return payload_code(devctl) == LOWEST_PAYLOAD ? PCI_OK
                                                      : admit(function, payload_code(devctl));
    } catch (const std::bad_alloc &) {
        return PCI_ERR_NO_MEMORY;
    }
}

void admit_arrivals(std::span<const RoutingId> come) {
    Served *const now = served();
    for (const RoutingId id : come) {
        const Function *const function = now ? now->machine.find(id) : nullptr;
        if (!function || !is_above_given_size(*now, *function))
            continue;
        const std::scoped_lock guard(now->payload_writes.lock);
        now->payload_writes.written.at(id) = true;
    }
}

bool keep_payloads_in_bounds() {
    Served *const now = served();
    if (!now)
        return true;
    PayloadWrites &writes = now->payload_writes;
    const std::scoped_lock one_at_a_time(writes.one_repair);
    Ids written;
    {
        const std::scoped_lock guard(writes.lock);
        writes.written.visit_all([&](RoutingId id, bool &is_written) {
            if (std::exchange(is_written, false))
                written.insert(written.end(), id);
        });
    }
    if (!written.empty())
        now->machine.space().look_again();
    complete_hierarchies(*now, written);
    Repair repair(now->machine, std::move(written));
    repair.run();
    for (const auto &[id, why] : repair.failures()) {
        log_error(why);
        writes.failed.insert(id);
    }
    return writes.failed.empty();
}

}  // namespace host
