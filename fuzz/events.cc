// Plays an events file: the whole file when it is accepted, else each line that is accepted alone.
#include <cstdlib>

#include "fuzz/support.h"
#include "host/base/input.h"
#include "host/base/words.h"
#include "host/exports/serve.h"
#include "host/watch/bus_events.h"
#include "host/watch/event_player.h"
#include "platform/capability.h"
#include "platform/pci_regs.h"
#include "tests/support/module_state.h"

using namespace host;

namespace {

// Made once; every run begins with every function present and in reset state.
struct ServedMachine {
    ServedMachine() {
        for (bridge_rec *root = machine.bridges().top(); root; root = root->next_sibling)
            roots.push_back(root);
    }
    void reset() {
        for (const RoutingId id : source.image->functions()) {
            source.image->reset(id);
            source.image->set_present(id, true);
        }
        for (bridge_rec *root : roots)
            machine.insert(*root);
    }

    MachineSource source = fuzz::source_of(fuzz::small_machine());
    Machine machine{*source.image};
    std::vector<bridge_rec *> roots;
};

void play_all(std::string_view text, const MachineSource &source, Machine &machine) {
    const auto player = player_for(source, machine);
    for (const BusEvent &event : parse_bus_events(text, "events", machine, 0))
        player->play(event);
}

// The host guarantees this whatever happens and whatever modules write: no payload size above that
// of the port above.
void check_payload_sizes(Machine &machine) {
    const auto code = [&](bdf_t bdf) {
        const Function *function = machine.find(bdf);
        const auto pcie = function ? function->cap(CAPID_PCIE) : std::nullopt;
        std::uint32_t devctl = 0;
        if (pcie)
            machine.space().read(function->id(), *pcie + pci::DEVCTL, 2, devctl);
        return pci::get(devctl, pci::DEVCTL_MPS);
    };
    for (const Function *function : machine.functions())
        for (const bdf_t port : machine.bridges().ports_above(function->bdf))
            if (code(function->bdf) > code(port))
                std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char *>(data), size);
    static ServedMachine served;
    served.reset();
    const Serving serving(served.machine, ManagedBuses(256, true), true);
    fuzz::start_module_with("MPS=all:max\nECRC=all:+:+\n");
    try {
        play_all(text, served.source, served.machine);
    } catch (const InputError &) {
        std::vector<std::string> lines;
        for (const std::string_view line : split(text, '\n'))
            lines.emplace_back(line);
        fuzz::play_each(lines, served.source, served.machine);
    }
    check_payload_sizes(served.machine);
    tests::reset_module();
    fuzz::end_execution({data, size}, *served.source.image);
    return 0;
}
