// Starts the module on a machine, plays events, swaps functions for others, and compares every byte
// of configuration space with what the model expects, after start-up and after each event.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "fuzz/machines.h"
#include "fuzz/model.h"
#include "fuzz/slots.h"
#include "host/base/input.h"
#include "host/exports/payload_guard.h"
#include "host/exports/serve.h"
#include "host/watch/bus_events.h"
#include "host/watch/event_player.h"
#include "host/watch/hot_plug.h"
#include "tests/support/module_state.h"

using namespace host;

namespace {

fuzz::Spaces spaces_of(const ConfigImage &image) {
    fuzz::Spaces spaces;
    for (const RoutingId id : image.functions())
        spaces.emplace(id, image.bytes(id));
    return spaces;
}

// One input, from start-up to its last event.
class Run {
public:
    Run(const fuzz::HostileMachine &hostile, std::string_view features)
        : hostile_(hostile), model_(before_, hostile.managed, features, hostile.complete),
          serving_(machine_, hostile.managed, hostile.complete) {
        slots_.set_machine(machine_);
        fuzz::start_module_with(features);
        keep_payloads_in_bounds();
        compare("start-up");
    }
    ~Run() { tests::reset_module(); }
    Run(const Run &) = delete;
    Run &operator=(const Run &) = delete;

    // Where functions are swapped, as by a kernel, no line can remove or insert any.
    void play_all() {
        const bool has_swaps =
            std::ranges::any_of(hostile_.events, is_swap, &fuzz::HostileEvent::word);
        for (const fuzz::HostileEvent &event : hostile_.events) {
            if (!model_.knows_resets())
                return;
            if (is_swap(event.word))
                swap(id_of(event.function), id_of(*event.value));
            else if (!has_swaps || (event.word != "insert" && event.word != "remove"))
                play(event);
        }
    }

    const ConfigImage &image() const { return *source_.image; }

private:
    static bool is_swap(std::string_view word) { return word == fuzz::SWAP; }

    RoutingId id_of(std::size_t index) const {
        return hostile_.functions[index % hostile_.functions.size()].spec.id;
    }

    void play(const fuzz::HostileEvent &event) {
        const RoutingId id = id_of(event.function);
        std::string line = std::string(event.word) + " " + bdf_text(id);
        if (event.value)
            line += " " + std::to_string(*event.value);
        if (event.status)
            line += " " + std::to_string(event.status);
        const bool is_taken = plays(line);
        if (is_taken != model_.play({event.word, id, event.value, event.status})) {
            std::fprintf(stderr, "%s: %s\n", line.c_str(), is_taken ? "taken" : "refused");
            std::abort();
        }
        compare(line);
    }

    // Returns false when the line is refused.
    bool plays(const std::string &line) {
        try {
            for (const BusEvent &event : parse_bus_events(line, "events", machine_, 0))
                player_for(source_, machine_)->play(event);
            return true;
        } catch (const InputError &) {
            return false;
        }
    }

    void swap(RoutingId id, RoutingId other) {
        const std::vector<std::uint8_t> &bytes = before_.at(other);
        if (!model_.swap(id, bytes))
            return;
        HotPlug hot_plug(
            machine_, slots_,
            {.inserted = [](const auto &) {}, .outcome = [](const auto &) { return ""; }});
        slots_.exchange(id, bytes);
        hot_plug.take({.added = true, .id = id, .bridges = slots_.bridges_above(id)});
        hot_plug.settle(HotPlug::Clock::now() + std::chrono::hours(1));
        compare("swap " + bdf_text(id) + " for " + bdf_text(other));
    }

    void compare(const std::string &after) const {
        const fuzz::Spaces found = spaces_of(image()), expected = model_.spaces();
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

    const fuzz::HostileMachine &hostile_;
    MachineSource source_ = hostile_.source();
    const fuzz::Spaces before_ = spaces_of(*source_.image);
    fuzz::Model model_;
    fuzz::Slots slots_{source_};
    Machine machine_{slots_};
    const Serving serving_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const fuzz::HostileMachine hostile = fuzz::hostile_machine({data, size});
    const std::string_view features =
        hostile.features.empty() ? "MPS=all:max\nECRC=all:+:+\n" : hostile.features;
    // C's rules for text end a file at a zero byte.
    if (!hostile.is_sound() || features.find('\0') != features.npos)
        return -1;
    Run run(hostile, features);
    run.play_all();
    fuzz::end_execution({data, size}, run.image());
    return 0;
}
