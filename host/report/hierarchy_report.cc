#include "host/report/hierarchy_report.h"

#include <algorithm>
#include <iterator>
#include <set>

namespace host {
namespace {

using Functions = std::vector<FunctionReport>;

std::size_t index_of(const Functions &functions, bdf_t bdf) {
    const auto id = [](const FunctionReport &row) { return row.function.id(); };
    const auto found = std::ranges::lower_bound(functions, pci::routing_id_of(bdf), {}, id);
    return static_cast<std::size_t>(found - functions.begin());
}

// Reserved codes stand for no size.
std::optional<unsigned> supported(const FunctionReport &row) {
    constexpr unsigned LARGEST = 4096;
    const auto size = row.before.mps ? row.before.mps->supported : std::nullopt;
    return size && *size <= LARGEST ? size : std::nullopt;
}

// Returns true when a function, or a bridge above it, is one of `some`. The root port counts as one
// only itself: what is below it could stand below another.
bool is_or_is_below(const Functions &functions, std::size_t index, const std::vector<bool> &some) {
    if (some[index])
        return true;
    for (auto above = functions[index].bridge; above; above = functions[*above].bridge)
        if (some[*above] && functions[*above].bridge)
            return true;
    return false;
}

template <typename IsCounted>
std::optional<unsigned> smallest(const Functions &functions, const HierarchyReport &hierarchy,
                                 IsCounted &&is_counted) {
    std::optional<unsigned> size;
    for (const std::size_t member : hierarchy.members)
        if (const auto own = supported(functions[member]); own && is_counted(member))
            size = std::min(size.value_or(*own), *own);
    return size;
}

void find_limits(HierarchyReport &hierarchy, const Functions &functions) {
    hierarchy.path_max = smallest(functions, hierarchy, [](std::size_t) { return true; });
    if (!hierarchy.path_max)
        return;
    std::ranges::copy_if(
        hierarchy.members, std::back_inserter(hierarchy.limiters),
        [&](std::size_t member) { return supported(functions[member]) == hierarchy.path_max; });
    std::set<bdf_t> devices;
    std::vector<bool> is_limiter(functions.size());
    for (const std::size_t limiter : hierarchy.limiters) {
        is_limiter[limiter] = true;
        if (devices.insert(pci::function_0_of(functions[limiter].function.bdf)).second)
            hierarchy.limiting_devices.push_back(limiter);
    }
    hierarchy.possible = smallest(functions, hierarchy, [&](std::size_t member) {
        return !is_or_is_below(functions, member, is_limiter);
    });
}

}  // namespace

// Root ports come before what is below them. Conflicting bridges come last of all members: they may
// lead into the hierarchy without being part of it.
std::vector<HierarchyReport> find_hierarchies(const Functions &functions, const Machine &machine) {
    std::vector<HierarchyReport> found;
    std::vector<std::size_t> place(functions.size());  // of a root port, in `found`
    const auto add = [&](std::size_t member, std::size_t beside) {
        const auto root_port = root_port_of(functions, beside);
        if (!root_port)
            return;
        if (*root_port == member) {
            place[member] = found.size();
            HierarchyReport hierarchy;
            hierarchy.root_port = member;
            found.push_back(std::move(hierarchy));
        }
        found[place[*root_port]].members.push_back(member);
    };
    for (std::size_t i = 0; i < functions.size(); ++i)
        add(i, i);
    for (const BridgeTree::BusConflict &conflict : machine.bridges().conflicts())
        add(index_of(functions, conflict.bdf), index_of(functions, conflict.holder->bdf));
    for (HierarchyReport &hierarchy : found)
        find_limits(hierarchy, functions);
    return found;
}

double payload_gain(unsigned from, unsigned to) {
    constexpr double OVERHEAD = 24;
    const auto share = [](double payload) { return payload / (payload + OVERHEAD); };
    return (share(to) / share(from) - 1) * 100;
}

}  // namespace host
