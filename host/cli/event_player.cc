#include "host/cli/event_player.h"

#include "host/server/progress.h"
#include "host/server/hooks.h"

namespace host {
namespace {

struct Player {
    Machine &machine;
    ConfigImage &image;

    void insert(const BusEvent &event) const {
        call_bridge_hooks(BUSCFG_HOOK_PRE_INSERTION, event.bridge, event.value, event.status);
        // Registers first: whoever finds a function in the tree finds it in reset state.
        for (const Function *const function : machine.below(*event.bridge)) {
            image.reset(function->id());
            image.set_present(function->id(), true);
        }
        machine.insert(*event.bridge);
        call_bridge_hooks(BUSCFG_HOOK_POST_INSERTION, event.bridge, event.value, event.status);
    }

    void remove(const BusEvent &event) const {
        call_bridge_hooks(BUSCFG_HOOK_PRE_REMOVAL, event.bridge, event.value, event.status);
        machine.remove(*event.bridge);
        for (const Function *const function : machine.below(*event.bridge))
            image.set_present(function->id(), false);
        call_bridge_hooks(BUSCFG_HOOK_POST_REMOVAL, event.bridge, event.value, event.status);
    }

    void flr(const BusEvent &event) const {
        call_reset_hooks(BUSCFG_HOOK_PRE_RESET, RESET_TYPE_FLR, event.bdf, event.status);
        image.reset(static_cast<RoutingId>(event.bdf & BDF_ROUTING_ID));
        call_reset_hooks(BUSCFG_HOOK_POST_RESET, RESET_TYPE_FLR, event.bdf, event.status);
    }

    void bus_reset(const BusEvent &event) const {
        call_reset_hooks(BUSCFG_HOOK_PRE_RESET, RESET_TYPE_BUS, event.bdf, event.status);
        for (const Function *const function : machine.below(*event.bridge))
            image.reset(function->id());
        call_reset_hooks(BUSCFG_HOOK_POST_RESET, RESET_TYPE_BUS, event.bdf, event.status);
    }

    void play(const BusEvent &event) const {
        switch (event.kind) {
        case EventKind::INSERT:
            return insert(event);
        case EventKind::REMOVE:
            return remove(event);
        case EventKind::FLR:
            return flr(event);
        case EventKind::BUS_RESET:
            return bus_reset(event);
        }
    }
};

}  // namespace

void play_events(const std::vector<BusEvent> &events, Machine &machine, ConfigImage &image) {
    const Player player{.machine = machine, .image = image};
    for (const BusEvent &event : events) {
        log_progress("event " + event.origin);
        player.play(event);
    }
}

}  // namespace host
