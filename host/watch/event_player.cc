#include "host/watch/event_player.h"

#include <algorithm>
#include <array>

#include "host/base/input.h"
#include "host/base/log.h"
#include "host/exports/hooks.h"
#include "host/watch/resets.h"
#include "host/watch/signals.h"
#include "platform/pci_access.h"

namespace host {
namespace {

// On an image every event can be applied.
class ImagePlayer final : public EventPlayer {
public:
    ImagePlayer(Machine &machine, ConfigImage &image) : EventPlayer(machine), image_(image) {}

private:
    std::string refusal(const BusEvent &) const override { return {}; }

    pci_err_t apply(const BusEvent &event) override {
        switch (event.kind) {
        case EventKind::INSERT:
            // Registers are reset first, so that a thread that finds the function in the tree finds
            // it in reset state.
            for (const Function *const function : machine_.below(*event.bridge)) {
                image_.reset(function->id());
                image_.set_present(function->id(), true);
            }
            machine_.insert(*event.bridge);
            break;
        case EventKind::REMOVE:
            machine_.remove(*event.bridge);
            for (const Function *const function : machine_.below(*event.bridge))
                image_.set_present(function->id(), false);
            break;
        case EventKind::FLR:
            image_.reset(static_cast<RoutingId>(event.bdf & BDF_ROUTING_ID));
            break;
        case EventKind::BUS_RESET:
            for (const Function *const function : machine_.below(*event.bridge))
                image_.reset(function->id());
            break;
        }
        return PCI_OK;
    }

    ConfigImage &image_;
};

// On hardware the kernel does the resets; insertions and removals cannot be commanded.
class LivePlayer final : public EventPlayer {
public:
    LivePlayer(Machine &machine, LiveSpace &space) : EventPlayer(machine), space_(space) {}

private:
    std::string refusal(const BusEvent &event) const override {
        if (event.kind == EventKind::FLR || event.kind == EventKind::BUS_RESET)
            return {};
        return "on live hardware functions come and go by themselves (--watch)";
    }

    pci_err_t apply(const BusEvent &event) override {
        const auto id = static_cast<RoutingId>(event.bdf & BDF_ROUTING_ID);
        if (event.kind == EventKind::FLR)
            return reset_function(space_, id);
        std::vector<const Function *> below = machine_.below(*event.bridge);
        std::erase_if(below,
                      [this](const auto *function) { return !machine_.reachable(*function); });
        return reset_bus(space_, id, below);
    }

    LiveSpace &space_;
};

struct HookKinds {
    EventKind event;
    std::uint32_t before;
    std::uint32_t after;
    std::uint32_t reset_type;  // 0: no reset
};

constexpr std::array<HookKinds, 4> HOOK_KINDS{{
    {EventKind::INSERT, BUSCFG_HOOK_PRE_INSERTION, BUSCFG_HOOK_POST_INSERTION, 0},
    {EventKind::REMOVE, BUSCFG_HOOK_PRE_REMOVAL, BUSCFG_HOOK_POST_REMOVAL, 0},
    {EventKind::FLR, BUSCFG_HOOK_PRE_RESET, BUSCFG_HOOK_POST_RESET, RESET_TYPE_FLR},
    {EventKind::BUS_RESET, BUSCFG_HOOK_PRE_RESET, BUSCFG_HOOK_POST_RESET, RESET_TYPE_BUS},
}};

void call_hooks(std::uint32_t kind, std::uint32_t reset_type, const BusEvent &event, int status) {
    if (reset_type != 0)
        call_reset_hooks(kind, reset_type, event.bdf, status);
    else
        call_bridge_hooks(kind, event.bridge, event.value, status);
}

}  // namespace

pci_err_t EventPlayer::play(const BusEvent &event) {
    log_info("event " + event.origin);
    machine_.space().look_again();
    const HookKinds &kinds = *std::ranges::find(HOOK_KINDS, event.kind, &HookKinds::event);
    call_hooks(kinds.before, kinds.reset_type, event, event.status);
    const pci_err_t error = apply(event);
    machine_.space().look_again();
    call_hooks(kinds.after, kinds.reset_type, event,
               error ? static_cast<int>(error) : event.status);
    return error;
}

std::string EventPlayer::play(const std::vector<BusEvent> &events) {
    std::string reason;
    for (const BusEvent &event : events) {
        if (termination_pending())
            return "the server has been told to end";
        if (const pci_err_t error = play(event); error && reason.empty())
            reason = pci_strerror(error);
    }
    return reason;
}

std::vector<BusEvent> EventPlayer::parse(std::string_view text, const std::string &file,
                                         unsigned domain, std::size_t first_line) const {
    std::vector<BusEvent> events = parse_bus_events(text, file, machine_, domain, first_line);
    std::vector<std::string> refused;
    for (const BusEvent &event : events)
        if (const std::string reason = refusal(event); !reason.empty())
            refused.push_back(event.origin + ": " + reason);
    if (!refused.empty())
        throw InputError(refused);
    return events;
}

std::unique_ptr<EventPlayer> player_for(const MachineSource &source, Machine &machine) {
    if (source.is_written())
        return std::make_unique<LivePlayer>(machine, *source.live);
    return std::make_unique<ImagePlayer>(machine, *source.image);
}

}  // namespace host
