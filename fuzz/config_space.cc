// Reads machines with any bytes in their configuration space, starts the module on them, and plays
// every event on some of their functions.
#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "fuzz/machines.h"
#include "host/exports/serve.h"
#include "tests/support/module_state.h"

using namespace host;

namespace {

constexpr std::string_view FEATURES = "MPS=all:max\nECRC=all:+:+\n";

// Device Control, Max_Payload_Size, and Device Capabilities, Max_Payload_Size Supported, as coded
// there.
struct Payload {
    unsigned set;
    unsigned supported;
};

Payload payload_of(ConfigSpace &space, const Function &function) {
    const auto cap = function.cap(CAPID_PCIE);
    std::uint32_t supported = 0;
    std::uint32_t control = 0;
    if (!cap || space.read(function.id(), *cap + pci::DEVCAP, 4, supported) != PCI_OK ||
        space.read(function.id(), *cap + pci::DEVCTL, 2, control) != PCI_OK)
        return {};
    return {pci::get(control, pci::DEVCTL_MPS), pci::get(supported, pci::DEVCAP_MPSS)};
}

std::vector<Payload> payloads(const Machine &machine) {
    std::vector<Payload> all;
    for (const Function *function : machine.functions())
        all.push_back(payload_of(machine.space(), *function));
    return all;
}

// No function may be set to more than it supports, unless it was before. Where accesses or
// allocations fail this does not hold, because a register that cannot be read does not count.
void check_payloads(const Machine &machine, const std::vector<Payload> &before) {
    const std::vector<Payload> now = payloads(machine);
    for (std::size_t i = 0; i < now.size(); ++i)
        if (now[i].set != before[i].set && now[i].set > now[i].supported) {
            std::fprintf(stderr, "%05x: payload code %u set, %u supported\n",
                         machine.functions()[i]->bdf, now[i].set, now[i].supported);
            std::abort();
        }
}

void run(const fuzz::HostileMachine &hostile, const MachineSource &source) {
    constexpr std::size_t MOST_WITH_EVENTS = 8;
    Machine machine(*source.image);
    const Serving serving(machine, hostile.managed, true);
    const std::vector<Payload> before = payloads(machine);
    fuzz::start_module_with(hostile.features.empty() ? FEATURES : hostile.features,
                            hostile.failing_calloc);
    if (hostile.is_sound())
        check_payloads(machine, before);
    const std::vector<const Function *> functions = machine.functions();
    for (std::size_t i = 0; i < std::min(hostile.with_events.size(), MOST_WITH_EVENTS); ++i)
        fuzz::play_each(fuzz::all_events_of(functions[hostile.with_events[i]]->bdf), source,
                        machine);
    if (hostile.is_sound())
        check_payloads(machine, before);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const fuzz::HostileMachine hostile = fuzz::hostile_machine({data, size});
    const MachineSource source = hostile.source();
    source.image->set_filter(hostile.faults);
    run(hostile, source);
    source.image->set_filter({});
    tests::reset_module();
    fuzz::end_execution({data, size}, *source.image);
    return 0;
}
