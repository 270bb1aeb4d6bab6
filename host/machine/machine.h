// A machine as the server sees it: its functions, with the facts that never change, and its
// bridges.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "host/base/by_routing_id.h"
#include "host/machine/bridge_tree.h"
#include "host/machine/function.h"
#include "host/space/config_space.h"
#include "platform/types.h"

namespace host {

class Machine {
public:
    // Takes a line about wrong bus numbers of a bridge.
    using Warn = std::function<void(const std::string &line)>;

    // Reads every function of `space`, which must outlive the machine. `warn` is called now and in
    // update(), with each line once; it must not change the machine.
    explicit Machine(
        ConfigSpace &space, Warn warn = [](const std::string &) {});
    Machine(const Machine &) = delete;
    Machine &operator=(const Machine &) = delete;

    ConfigSpace &space() const;

    // Returns every function, ascending by routing ID, including those that do not answer or have
    // been removed. Records live as long as the machine.
    std::vector<const Function *> functions() const;

    // Returns the function with that routing ID, one of functions(), or null.
    const Function *known(RoutingId id) const;

    // Returns the function at `bdf` (either form) when it answers and has not been removed, else
    // null. Takes constant time; safe on any thread.
    const Function *find(bdf_t bdf) const;

    // Returns true when a function answers and has not been removed. remove(), insert() and
    // update() change it.
    bool reachable(const Function &function) const;

    // Counts the changes of what is reachable, so that lists made from it can be kept until the
    // next one.
    std::uint64_t generation() const;

    BridgeTree &bridges();
    const BridgeTree &bridges() const;

    // Remove everything below the bridge from the tree, or bring it back as it was. The caller
    // changes the registers. No effect below a bridge that is itself removed: all of it comes back
    // with that bridge.
    void remove(bridge_rec &bridge);
    void insert(bridge_rec &bridge);

    // Removes the functions that are gone, reads those that have come, which may differ from what
    // was there before, and re-reads bridges whose bus numbers have changed; then updates the
    // bridge tree.
    void update(std::span<const RoutingId> gone, std::span<const RoutingId> come);

    // Does the same, where only these bridges can have got other bus numbers.
    void update(std::span<const RoutingId> gone, std::span<const RoutingId> come,
                std::span<const RoutingId> renumbered);

    // Returns every function below the bridge, bridges and removed functions included.
    std::vector<const Function *> below(const bridge_rec &bridge) const;

private:
    struct Place {
        std::atomic<const Function *> function = nullptr;  // the last one known there
        std::atomic<bool> reachable = false;
    };

    std::vector<std::unique_ptr<Function>> read(std::span<const RoutingId> ids);
    std::vector<RoutingId> with_other_numbers(std::span<const RoutingId> bridges) const;
    std::vector<const Function *>
    possible_physical(std::span<const std::unique_ptr<Function>> fresh) const;
    void tell_virtual(std::span<const std::unique_ptr<Function>> fresh);
    void choose_forms(std::span<const std::unique_ptr<Function>> fresh);
    void publish(std::vector<std::unique_ptr<Function>> fresh);
    std::vector<const Function *>
    reachable_with(std::span<const std::unique_ptr<Function>> fresh) const;
    void give_warnings(const std::vector<std::string> &lines);
    void set_reachable(const bridge_rec &bridge, bool reachable);
    bool is_there(const bridge_rec &bridge) const;

    ConfigSpace &space_;
    Warn warn_;
    std::set<std::string> warned_of_;
    std::vector<std::unique_ptr<const Function>> records_;  // also those that others have replaced
    ByRoutingId<Place> places_;
    std::unique_ptr<BridgeTree> bridges_;
    std::mutex change_lock_;  // one change at a time; never held by lookups
    std::atomic<std::uint64_t> generation_ = 0;
};

// Every access to a register begins with it.
inline const Function *Machine::find(bdf_t bdf) const {
    if (bdf > BDF_HIGHEST)
        return nullptr;
    const Place *place = places_.find(pci::routing_id_of(bdf));
    return place && place->reachable ? place->function.load() : nullptr;
}

inline ConfigSpace &Machine::space() const {
    return space_;
}

}  // namespace host
