#include "tools/ops/operations.h"

#include <algorithm>
#include <array>
#include <ostream>
#include <string_view>

#include "features/aspm/link_control.h"
#include "features/fb2b/control.h"
#include "host/base/address.h"
#include "host/base/input.h"
#include "host/base/words.h"
#include "host/machine/open_machine.h"
#include "tools/ops/changes.h"
#include "tools/ops/msi_round_trip.h"
#include "topology/bridge_walk.h"
#include "topology/event_collector.h"

namespace ops {
namespace {

namespace module = enable_features;
using host::Machine;

constexpr std::string_view ALL = "all";

// Runs an operation that sets registers and writes the changes.
template <typename Result>
pci_err_t set(Machine &machine, bdf_t bdf, std::ostream &out, Result (*operation)(bdf_t bdf)) {
    const FieldValues before = read_fields(machine);
    const auto error = static_cast<pci_err_t>(operation(bdf));
    write_changes(machine, before, out);
    return error;
}

// A root bus is named by its own number.
bool test_bus(Machine &machine, bridge_rec *bridge, std::ostream &out) {
    const bool capable = module::fast_back_to_back(bridge, module::FB2B_TEST);
    const int bus = machine.bridges().secondary_bus(*bridge);
    if (bridge->bridge_kind == BRIDGE_KIND_HOST)
        out << "bus " << host::bus_text(pci::bus_of(bridge->bdf)) << "  root bus     ";
    else
        out << "bus " << (bus < 0 ? "--" : host::bus_text(static_cast<unsigned>(bus))) << "  below "
            << host::bdf_text(bridge->bdf);
    out << (capable ? "  capable" : "  not capable") << '\n';
    return capable;
}

void test_all(Machine &machine, bridge_rec *first, std::ostream &out) {
    for (bridge_rec *bridge = first; bridge; bridge = bridge->next_sibling) {
        test_bus(machine, bridge, out);
        test_all(machine, bridge->children, out);
    }
}

// A single bus that is not capable is an error; among all buses, most are not.
pci_err_t test_fb2b(Machine &machine, bdf_t bdf, std::ostream &out) {
    if (bdf == BDF_NONE) {
        test_all(machine, machine.bridges().top(), out);
        return PCI_OK;
    }
    bridge_rec *const bridge = module::bridge_at_or_above(bdf);
    if (!bridge)
        return PCI_ERR_NO_DEVICE;
    return test_bus(machine, bridge, out) ? PCI_OK : PCI_ERR_NOT_SUPPORTED;
}

pci_err_t show_collector(Machine &, bdf_t bdf, std::ostream &out) {
    const bdf_t collector = module::find_rcec(bdf);
    if (collector == BDF_NONE)
        return PCI_ERR_NO_DEVICE;
    out << host::bdf_text(collector) << '\n';
    return PCI_OK;
}

struct Operation {
    std::array<std::string_view, 2> words;  // the second may be empty
    bool takes_all;
    pci_err_t (*run)(Machine &machine, bdf_t bdf, std::ostream &out);
    const char *help;
    bool disturbs_driver = false;  // takes away for a moment what a function's driver relies on
};

const std::array OPERATIONS = {
    Operation{{"aspm", "enable"},
              true,
              [](Machine &machine, bdf_t bdf, std::ostream &out) {
                  return set(machine, bdf, out, module::enable_aspm_feature);
              },
              "link power states that latencies allow, both ends"},
    Operation{{"aspm", "disable"},
              true,
              [](Machine &machine, bdf_t bdf, std::ostream &out) {
                  return set(machine, bdf, out, module::disable_aspm_feature);
              },
              "no link power states"},
    Operation{{"fb2b", "enable"},
              true,
              [](Machine &machine, bdf_t bdf, std::ostream &out) {
                  return set(machine, bdf, out, module::enable_fb2b_feature);
              },
              "fast back-to-back transactions where a whole bus can"},
    Operation{{"fb2b", "disable"},
              true,
              [](Machine &machine, bdf_t bdf, std::ostream &out) {
                  return set(machine, bdf, out, module::disable_fb2b_feature);
              },
              "no fast back-to-back transactions"},
    Operation{{"fb2b", "test"}, true, test_fb2b, "whether a whole bus can take them"},
    Operation{{"msi", "round-trip"},
              false,
              [](Machine &, bdf_t bdf, std::ostream &out) { return msi_round_trip(bdf, out); },
              "save MSI and MSI-X, disturb, restore, compare",
              true},
    Operation{{"rcec", ""}, false, show_collector, "the event collector that serves a function"},
};

std::string name_of(const Operation &operation) {
    std::string name(operation.words[0]);
    if (!operation.words[1].empty())
        name.append(1, ' ').append(operation.words[1]);
    return name;
}

const Operation &find_operation(const std::string &name) {
    const auto *const found = std::ranges::find(OPERATIONS, name, name_of);
    if (found == OPERATIONS.end())
        throw host::InputError("\"" + host::excerpt(name) +
                               "\" is no operation (hoplar-ops --help lists them)");
    return *found;
}

bdf_t parse_target(const Operation &operation, const std::string &word, const Machine &machine,
                   unsigned domain) {
    if (operation.takes_all && word == ALL)
        return BDF_NONE;
    try {
        return host::named_function(machine, domain, word).bdf;
    } catch (const host::InputError &error) {
        throw host::InputError(name_of(operation) + ": \"" + host::excerpt(word) +
                               "\": " + error.what());
    }
}

}  // namespace

Request parse_request(const std::vector<std::string> &words, const Machine &machine,
                      unsigned domain) {
    if (words.size() < 2)
        throw host::InputError("an operation and a function are wanted (hoplar-ops --help)");
    const std::vector<std::string> name(words.begin(), words.end() - 1);
    const Operation &operation = find_operation(host::join(name, " "));
    return {.run = operation.run,
            .bdf = parse_target(operation, words.back(), machine, domain),
            .disturbs_driver = operation.disturbs_driver};
}

std::string operations_help() {
    std::string text = "Operations:\n";
    for (const Operation &operation : OPERATIONS) {
        std::string line(2, ' ');
        line += name_of(operation) + (operation.takes_all ? " all|BDF" : " BDF");
        line.resize(26, ' ');
        text += line + operation.help + '\n';
    }
    return text;
}

}  // namespace ops
