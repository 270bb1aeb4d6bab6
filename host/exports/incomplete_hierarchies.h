// Finds the bridges that modules have passed over, and tells whether they can be set. Registers are
// read and never written; complete_hierarchies.h says what --complete does and when.
//
// A module gives a function a size by writing it to Device Control, whether or not it takes, and by
// reading it there and leaving it, because a register that holds the size already, as after an
// earlier start of the server, is not written. The last size counts, as long as the function is
// there. A hierarchy has been given one size when its root port and every other function of it that
// was given one were last given the same, and the root port is set to that still.
//
// In such a hierarchy, the bridges that no module has given a size and that are set to less are
// left to be set to the hierarchy's. All this must hold of such a bridge:
// - It is a switch port or a PCI Express to PCI bridge on a managed bus.
// - Bus numbers tell what is above and below it: none is claimed twice.
// - It supports the size, and the ports above it are set to as much.
// - Everything below it supports the size, and is set to as much or is a bridge that is set with
//   it: a function that is set to less would have to refuse what the bridge lets through then.
#pragma once

#include <bitset>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/machine/machine.h"

namespace host {

// The last payload size that a module has given each function, coded as in Device Control. Noting
// one takes no memory, because modules read sizes of every function.
class GivenSizes {
public:
    void set(RoutingId id, unsigned code) {
        codes_[id] = static_cast<std::uint8_t>(code);
        buses_[pci::bus_of(id)] = true;
    }
    void forget(RoutingId id) { codes_[id] = NONE; }

    // Returns the size; nullopt for a function that none was given.
    std::optional<unsigned> find(RoutingId id) const {
        return codes_[id] == NONE ? std::nullopt : std::optional<unsigned>(codes_[id]);
    }

    // Returns the functions that were given one, ascending.
    std::vector<RoutingId> functions() const;

private:
    static constexpr std::uint8_t NONE = 0xFF;
    std::vector<std::uint8_t> codes_ = std::vector<std::uint8_t>(ROUTING_IDS, NONE);
    std::bitset<256> buses_;  // those with a function that was given one, ever
};

struct Hierarchy {
    const Function *root_port;
    unsigned code;
};

// Returns the hierarchies with one size among those of `ids`, which is by routing ID;
// ascending.
std::vector<Hierarchy> hierarchies_of_one_size(const Machine &machine, const GivenSizes &given,
                                               const std::vector<bool> &ids);

// Bridges below each other, a port before what is below it: all of them can be set, or none.
struct Branch {
    std::vector<const Function *> bridges;
    std::string obstacle;  // why they cannot be set; empty when they can
};

std::vector<Branch> incomplete_branches(const Machine &machine, const Hierarchy &hierarchy,
                                        const GivenSizes &given);

}  // namespace host
