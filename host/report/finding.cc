#include "host/report/finding.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <set>

#include "host/base/words.h"

namespace host {
namespace {

constexpr FindingKind UNSUPPORTED{"payload-unsupported", Severity::ERROR};
constexpr FindingKind ABOVE_PORT{"payload-above-port", Severity::ERROR};
constexpr FindingKind BELOW_PORT{"payload-below-port", Severity::ERROR};
constexpr FindingKind MAY_BE_BELOW_PORT{"payload-below-port", Severity::WARNING};
constexpr FindingKind LEFT_BEHIND{"payload-left-behind", Severity::NOTE};
constexpr FindingKind BELOW_POSSIBLE{"payload-below-possible", Severity::NOTE};
constexpr FindingKind LIMITED{"payload-limited", Severity::NOTE};
constexpr FindingKind HIERARCHIES_DIFFER{"hierarchies-differ", Severity::NOTE};
constexpr FindingKind UNCHECKED{"ecrc-unchecked", Severity::NOTE};
constexpr FindingKind UNGENERATED{"ecrc-ungenerated", Severity::NOTE};
constexpr FindingKind NO_ROOT_PORT{"no-root-port", Severity::NOTE};
constexpr FindingKind ECRC_UNKNOWN{"ecrc-unknown", Severity::NOTE};

constexpr std::array KINDS = {UNSUPPORTED, ABOVE_PORT,     BELOW_PORT,   MAY_BE_BELOW_PORT,
                              LEFT_BEHIND, BELOW_POSSIBLE, LIMITED,      HIERARCHIES_DIFFER,
                              UNCHECKED,   UNGENERATED,    NO_ROOT_PORT, ECRC_UNKNOWN};

using Indices = std::vector<std::size_t>;

// Sums up the functions below a bridge.
struct Below {
    bool any = false;  // any function that can be reached
    bool gen = false;  // any function with the control on
    bool chk = false;
    unsigned reads = 0;  // bytes: the largest Max_Read_Request_Size
};

// A machine in one of its two states.
struct View {
    View(const std::vector<FunctionReport> &functions_,
         const std::vector<HierarchyReport> &hierarchies_, State state_)
        : functions(functions_), hierarchies(hierarchies_), state(state_), below(functions.size()) {
        for (std::size_t i = 0; i < functions.size(); ++i)
            for (auto above = functions[i].bridge; above; above = functions[*above].bridge)
                add(i, below[*above]);
    }

    const Function &function(std::size_t index) const { return functions[index].function; }
    const FeatureState &at(std::size_t index) const { return functions[index].*state; }
    const std::string &name(std::size_t index) const { return functions[index].address; }
    std::optional<unsigned> payload(std::size_t index) const {
        return at(index).mps ? at(index).mps->current : std::nullopt;
    }
    // Modules have given a hierarchy its size at the end only.
    bool is_completable(std::size_t index) const {
        return state == &FunctionReport::after && functions[index].completable;
    }
    bool enables(std::size_t index, EcrcControl EcrcState::*control) const {
        return at(index).ecrc && ((*at(index).ecrc).*control).enabled;
    }
    // Returns Max_Read_Request_Size in bytes; 0 for ports, which read nothing themselves.
    unsigned reads(std::size_t index) const {
        const auto type = function(index).port_type;
        const bool is_port = type == PORT_TYPE_ROOT_PORT || type == PORT_TYPE_SWITCH_UPSTREAM ||
                             type == PORT_TYPE_SWITCH_DOWNSTREAM;
        return is_port || !at(index).mps ? 0 : at(index).mps->read_request.value_or(0);
    }

    const std::vector<FunctionReport> &functions;
    const std::vector<HierarchyReport> &hierarchies;
    const State state;
    std::vector<Below> below;  // by bridge

private:
    void add(std::size_t index, Below &sum) const {
        sum.any |= at(index).reachable;
        sum.gen |= enables(index, &EcrcState::gen);
        sum.chk |= enables(index, &EcrcState::chk);
        sum.reads = std::max(sum.reads, reads(index));
    }
};

using Findings = std::vector<Finding>;

// Returns "+8.6 %".
std::string gain_text(unsigned from, unsigned to) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%+.1f %%", payload_gain(from, to));
    return text.data();
}

std::string bytes_text(unsigned size) {
    return std::to_string(size) + " bytes";
}

std::string names_text(const View &view, const Indices &indices) {
    constexpr std::size_t MOST = 4;
    std::vector<std::string> names;
    for (const std::size_t index : indices)
        names.push_back(view.name(index));
    return listed(names, MOST);
}

void find_unsupported(const View &view, Findings &findings) {
    for (std::size_t i = 0; i < view.functions.size(); ++i) {
        const auto size = view.payload(i);
        const auto supported = size ? view.at(i).mps->supported : std::nullopt;
        if (supported && *size > *supported)
            findings.push_back({UNSUPPORTED, i,
                                view.name(i) + " is set to " + bytes_text(*size) + ", above the " +
                                    std::to_string(*supported) + " that it supports"});
    }
}

void compare_with_port(const View &view, std::size_t index, std::size_t port, Findings &findings) {
    const unsigned size = *view.payload(index), port_size = *view.payload(port);
    const std::string difference = view.name(index) + " is set to " + bytes_text(size) +
                                   ", the port above it, " + view.name(port) + ", to " +
                                   std::to_string(port_size) + ": ";
    if (size > port_size)
        findings.push_back({ABOVE_PORT, index, difference + "its larger packets are lost"});
    else if (view.function(index).is_bridge() && !view.below[index].any)
        findings.push_back({LEFT_BEHIND, index,
                            difference + "what is plugged in below it may lose packets" +
                                (view.is_completable(index) ? " (--complete sets it)" : "")});
    else if (std::max(view.reads(index), view.below[index].reads) > size)
        findings.push_back({BELOW_PORT, index, difference + "larger packets to it are lost"});
    else
        findings.push_back({MAY_BE_BELOW_PORT, index,
                            difference + "larger writes to it would be lost; its reads are not "
                                         "larger (Max_Read_Request_Size)"});
}

// In an ARI device, Max_Payload_Size of function 0 applies to all functions, so the others are not
// compared.
void find_differences(const View &view, Findings &findings) {
    for (std::size_t i = 0; i < view.functions.size(); ++i) {
        const bdf_t bdf = view.function(i).bdf;
        const auto port = port_above(view.functions, i);
        if (!port || (pci::is_ari(bdf) && pci::function_0_of(bdf) != bdf))
            continue;
        const auto size = view.payload(i), port_size = view.payload(*port);
        if (size && port_size && *size != *port_size)
            compare_with_port(view, i, *port, findings);
    }
}

void find_possible_sizes(const View &view, Findings &findings) {
    for (const HierarchyReport &hierarchy : view.hierarchies) {
        const std::size_t root_port = hierarchy.root_port;
        const std::string whose = view.name(root_port) + ": its hierarchy is ";
        const auto size = view.payload(root_port);
        if (hierarchy.members.size() < 2 || !hierarchy.path_max)
            continue;
        if (size && *size < *hierarchy.path_max)
            findings.push_back({BELOW_POSSIBLE, root_port,
                                whose + "set to " + bytes_text(*size) + " and supports " +
                                    std::to_string(*hierarchy.path_max) + ": " +
                                    gain_text(*size, *hierarchy.path_max)});
        if (hierarchy.possible)
            findings.push_back({LIMITED, root_port,
                                whose + "limited to " + bytes_text(*hierarchy.path_max) + " by " +
                                    names_text(view, hierarchy.limiting_devices) + "; " +
                                    without_text(hierarchy)});
    }
}

void find_different_hierarchies(const View &view, Findings &findings) {
    std::set<unsigned> sizes;
    Indices root_ports;
    for (const HierarchyReport &hierarchy : view.hierarchies)
        if (const auto size = view.payload(hierarchy.root_port);
            size && hierarchy.members.size() > 1) {
            sizes.insert(*size);
            root_ports.push_back(hierarchy.root_port);
        }
    if (sizes.size() < 2)
        return;
    std::vector<std::string> texts;
    for (const unsigned size : sizes)
        texts.push_back(std::to_string(size));
    findings.push_back({HIERARCHIES_DIFFER, root_ports[0],
                        "hierarchies are set to " + join(texts, ", ") +
                            " bytes: writes from below one root port to below another may not "
                            "pass; where they must, set all to " +
                            texts[0],
                        std::move(root_ports)});
}

// One of the two ECRC controls: in a function, and in any function below a bridge.
struct Control {
    EcrcControl EcrcState::*own;
    bool Below::*below;
};
constexpr Control GEN{&EcrcState::gen, &Below::gen};
constexpr Control CHK{&EcrcState::chk, &Below::chk};

bool is_on_above(const View &view, std::size_t index, Control control) {
    for (auto above = view.functions[index].bridge; above; above = view.functions[*above].bridge)
        if (view.enables(*above, control.own))
            return true;
    return false;
}

template <typename IsMeant>
void note(const View &view, Findings &findings, const FindingKind &kind, const char *text,
          IsMeant &&is_meant) {
    Indices meant;
    for (std::size_t i = 0; i < view.functions.size(); ++i)
        if (is_meant(i))
            meant.push_back(i);
    if (meant.empty())
        return;
    const std::string names = names_text(view, meant);
    findings.push_back({kind, meant[0], names + text, std::move(meant)});
}

// Packets go through all ports between a function and its root port, and end at one of these. A
// port with nothing below it forwards none.
void find_lonely_ecrc(const View &view, Findings &findings) {
    const auto is_alone = [&](Control one, Control other) {
        return [&view, one, other](std::size_t i) {
            return view.enables(i, one.own) && root_port_of(view.functions, i) &&
                   (!view.function(i).is_bridge() || view.below[i].any) &&
                   !(view.below[i].*other.below) && !is_on_above(view, i, other);
        };
    };
    note(view, findings, UNCHECKED, ": ECRC is generated, and checked by none above or below",
         is_alone(GEN, CHK));
    note(view, findings, UNGENERATED, ": ECRC is checked, and generated by none above or below",
         is_alone(CHK, GEN));
}

void find_limits_of_view(const View &view, Findings &findings) {
    note(view, findings, NO_ROOT_PORT,
         ": without a root port above, so that no payload size can be set", [&](std::size_t i) {
             const auto port_type = view.function(i).port_type;
             return (port_type == PORT_TYPE_ENDPOINT || port_type == PORT_TYPE_LEGACY_ENDPOINT) &&
                    view.payload(i) && !root_port_of(view.functions, i);
         });
    note(view, findings, ECRC_UNKNOWN,
         ": without extended configuration space here, so that nothing is known of ECRC",
         [&](std::size_t i) { return view.at(i).ecrc_unknown; });
}

constexpr std::array CHECKS = {find_unsupported,           find_differences, find_possible_sizes,
                               find_different_hierarchies, find_lonely_ecrc, find_limits_of_view};

}  // namespace

std::vector<Finding> find_findings(const std::vector<FunctionReport> &functions,
                                   const std::vector<HierarchyReport> &hierarchies, State state) {
    const View view{functions, hierarchies, state};
    Findings findings;
    for (const auto check : CHECKS)
        check(view, findings);
    std::ranges::stable_sort(findings, [](const Finding &left, const Finding &right) {
        return std::pair(-static_cast<int>(left.severity), left.function) <
               std::pair(-static_cast<int>(right.severity), right.function);
    });
    return findings;
}

std::span<const FindingKind> finding_kinds() {
    return KINDS;
}

const char *severity_text(Severity severity) {
    constexpr std::array TEXTS = {"note", "warning", "error"};
    return TEXTS[static_cast<std::size_t>(severity)];
}

std::string without_text(const HierarchyReport &hierarchy) {
    return std::to_string(*hierarchy.possible) + " without " +
           (hierarchy.limiting_devices.size() == 1 ? "it" : "them") + ": " +
           gain_text(*hierarchy.path_max, *hierarchy.possible);
}

}  // namespace host
