#include "host/exports/complete_hierarchies.h"

#include <new>
#include <utility>
#include <vector>

#include "host/base/address.h"
#include "host/base/log.h"
#include "host/exports/payload_sizes.h"
#include "host/exports/serve.h"
#include "platform/pci_regs.h"

namespace host {
namespace {

// Sets bridges to one size. Unless they are kept, the destructor sets them back from the bottom up,
// and stops at a bridge that cannot be set back, because it would then exceed a lowered port.
class Raise {
public:
    Raise(const Machine &machine, unsigned code) : machine_(machine), code_(code) {}
    ~Raise() {
        auto each = set_.rbegin();
        while (each != set_.rend() && set_back(*each->first, each->second))
            ++each;
    }
    Raise(const Raise &) = delete;
    Raise &operator=(const Raise &) = delete;

    bool set(const Function &bridge) {
        const auto bound = lowest_bound(machine_, bridge, read_devctl);
        std::uint16_t devctl = 0;
        if (!bound || bound->code < code_ || read_devctl(bridge, devctl) != PCI_OK)
            return false;
        set_.emplace_back(&bridge, payload_code(devctl));
        unsigned after = 0;
        return write_payload(bridge, devctl, code_, after) == PCI_OK && after == code_;
    }

    void keep() { set_.clear(); }

private:
    static bool set_back(const Function &bridge, unsigned old) {
        std::uint16_t devctl = 0;
        pci_err_t error = read_devctl(bridge, devctl);
        if (error == PCI_ERR_NO_DEVICE)
            return true;
        unsigned after = payload_code(devctl);
        if (!error && after != old)
            error = write_payload(bridge, devctl, old, after);
        const bool is_back = !error && after == old;
        if (!is_back)
            log_error(bdf_text(bridge.bdf) + ": payload size cannot be set back to " +
                      bytes_text(old));
        return is_back;
    }

    const Machine &machine_;
    const unsigned code_;
    std::vector<std::pair<const Function *, unsigned>> set_;
};

// Returns why not all could be set; empty when they were.
std::string set_all(const Machine &machine, const Branch &branch, unsigned code) {
    Raise raise(machine, code);
    for (const Function *bridge : branch.bridges)
        if (!raise.set(*bridge))
            return bdf_text(bridge->bdf) + " cannot be set";
    raise.keep();
    return "";
}

void complete(Served &now, const Hierarchy &hierarchy, const Branch &branch,
              std::set<RoutingId> &written) {
    std::string reason = branch.obstacle;
    if (reason.empty()) {
        for (const Function *bridge : branch.bridges)
            written.insert(bridge->id());
        reason = set_all(now.machine, branch, hierarchy.code);
    }
    const std::string size = bytes_text(hierarchy.code);
    if (!reason.empty()) {
        const std::string text = bdf_text(branch.bridges.front()->bdf) +
                                 ": payload size left below " + size +
                                 ", which its hierarchy has (--complete): " + reason;
        if (now.given_payloads.told.insert(text).second)
            log_warning(text);
        return;
    }
    const std::scoped_lock guard(now.given_payloads.lock);
    for (const Function *bridge : branch.bridges) {
        now.given_payloads.by_host[bridge->id()] = hierarchy.code;
        log_info(bdf_text(bridge->bdf) + ": payload size set to " + size +
                 ", as its hierarchy (--complete)");
    }
}

}  // namespace

void note_given_payload(const Function &function, std::uint16_t devctl) {
    GivenPayloads &given = served()->given_payloads;
    const std::scoped_lock guard(given.lock);
    given.by_modules.set(function.id(), payload_code(devctl));
    given.recent[function.id()] = given.any_recent = true;
    given.by_host.erase(function.id());
}

void complete_hierarchies(Served &now, std::set<RoutingId> &written) {
    GivenSizes by_modules;
    std::vector<bool> recent(ROUTING_IDS);
    {
        GivenPayloads &given = now.given_payloads;
        const std::scoped_lock guard(given.lock);
        for (const RoutingId id : given.by_modules.functions())
            if (!now.machine.find(id))
                given.by_modules.forget(id);
        std::erase_if(given.by_host,
                      [&](const auto &each) { return !now.machine.find(each.first); });
        if (!now.complete || !std::exchange(given.any_recent, false))
            return;
        by_modules = given.by_modules;
        std::swap(recent, given.recent);
    }
    for (const Hierarchy &hierarchy : hierarchies_of_one_size(now.machine, by_modules, recent))
        for (const Branch &branch : incomplete_branches(now.machine, hierarchy, by_modules))
            complete(now, hierarchy, branch, written);
}

std::set<RoutingId> completable_bridges() {
    std::set<RoutingId> found;
    Served *const now = served();
    if (!now || now->complete)
        return found;
    GivenSizes by_modules;
    {
        const std::scoped_lock guard(now->given_payloads.lock);
        by_modules = now->given_payloads.by_modules;
    }
    const std::vector<bool> all(ROUTING_IDS, true);
    for (const Hierarchy &hierarchy : hierarchies_of_one_size(now->machine, by_modules, all))
        for (const Branch &branch : incomplete_branches(now->machine, hierarchy, by_modules))
            if (branch.obstacle.empty())
                for (const Function *bridge : branch.bridges)
                    found.insert(bridge->id());
    return found;
}

bool is_completed(const Function &function, unsigned size) {
    Served *const now = served();
    if (!now)
        return false;
    const std::scoped_lock guard(now->given_payloads.lock);
    const auto found = now->given_payloads.by_host.find(function.id());
    return found != now->given_payloads.by_host.end() && pci::size_bytes(found->second) == size;
}

}  // namespace host
