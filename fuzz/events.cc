// An events file: what is accepted as a whole is played, and so is each line that would be accepted
// alone.
#include "fuzz/support.h"
#include "host/base/input.h"
#include "host/base/words.h"
#include "host/exports/serve.h"
#include "host/watch/bus_events.h"
#include "host/watch/event_player.h"
#include "tests/support/module_state.h"

using namespace host;

namespace {

// Made once: every run begins with everything there, and in reset state.
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

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    fuzz::open_silent_log();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char *>(data), size);
    static ServedMachine served;
    served.reset();
    const Serving serving(served.machine);
    fuzz::start_module_with("MPS=all:max\nECRC=all:+:+\n");
    try {
        play_all(text, served.source, served.machine);
    } catch (const InputError &) {
        std::vector<std::string> lines;
        for (const std::string_view line : split(text, '\n'))
            lines.emplace_back(line);
        fuzz::play_each(lines, served.source, served.machine);
    }
    tests::reset_module();
    return 0;
}
