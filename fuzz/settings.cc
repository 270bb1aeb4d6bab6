// Starts the module on a machine, plays events, and compares every byte of configuration space with
// what the model expects, after start-up and after each event.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "fuzz/machines.h"
#include "fuzz/model.h"
#include "host/base/input.h"
#include "host/exports/payload_guard.h"
#include "host/exports/serve.h"
#include "host/watch/bus_events.h"
#include "host/watch/event_player.h"
#include "tests/support/module_state.h"

using namespace host;

namespace {

fuzz::Spaces spaces_of(const ConfigImage &image) {
    fuzz::Spaces spaces;
    for (const RoutingId id : image.functions())
        spaces.emplace(id, image.bytes(id));
    return spaces;
}

void compare(const fuzz::Spaces &found, const fuzz::Spaces &expected, const std::string &after) {
    if (found == expected)
        return;
    std::fprintf(stderr, "after %s:\n", after.c_str());
    for (const auto &[id, bytes] : found)
        for (std::size_t i = 0; i < bytes.size(); ++i)
            if (bytes[i] != expected.at(id)[i])
                std::fprintf(stderr, "%s: %02x at offset 0x%zx, the model expects %02x\n",
                             bdf_text(id).c_str(), bytes[i], i, expected.at(id)[i]);
    std::abort();
}

// The line of an event as a file has it.
std::string line_of(const fuzz::HostileEvent &event, RoutingId id) {
    std::string line = event.word + (" " + bdf_text(id));
    if (event.value)
        line += " " + std::to_string(*event.value);
    if (event.status)
        line += " " + std::to_string(event.status);
    return line;
}

// Returns false when the line is refused.
bool play(const std::string &line, const MachineSource &source, Machine &machine) {
    try {
        for (const BusEvent &event : parse_bus_events(line, "events", machine, 0))
            player_for(source, machine)->play(event);
        return true;
    } catch (const InputError &) {
        return false;
    }
}

void play_all(const fuzz::HostileMachine &hostile, const MachineSource &source, Machine &machine,
              fuzz::Model &model) {
    for (const fuzz::HostileEvent &event : hostile.events) {
        const RoutingId id = hostile.functions[event.function].spec.id;
        const std::string line = line_of(event, id);
        const bool is_taken = play(line, source, machine);
        if (is_taken != model.play({event.word, id, event.value, event.status})) {
            std::fprintf(stderr, "%s: %s\n", line.c_str(), is_taken ? "taken" : "refused");
            std::abort();
        }
        compare(spaces_of(*source.image), model.spaces(), line);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const fuzz::HostileMachine hostile = fuzz::hostile_machine({data, size});
    const std::string_view features =
        hostile.features.empty() ? "MPS=all:max\nECRC=all:+:+\n" : hostile.features;
    // C's rules for text end a file at a zero byte.
    if (!hostile.is_sound() || features.find('\0') != features.npos)
        return -1;
    const MachineSource source = hostile.source();
    fuzz::Model model(spaces_of(*source.image), hostile.managed, features, hostile.complete);
    Machine machine(*source.image);
    const Serving serving(machine, hostile.managed, hostile.complete);
    fuzz::start_module_with(features);
    keep_payloads_in_bounds();
    compare(spaces_of(*source.image), model.spaces(), "start-up");
    if (model.knows_resets())
        play_all(hostile, source, machine, model);
    tests::reset_module();
    fuzz::end_execution({data, size}, *source.image);
    return 0;
}
