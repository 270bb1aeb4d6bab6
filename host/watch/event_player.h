// Plays events on the machine that is served.
#pragma once

#include <memory>

#include "host/space/machine_source.h"
#include "host/watch/bus_events.h"

namespace host {

class EventPlayer {
public:
    explicit EventPlayer(Machine &machine) : machine_(machine) {}
    virtual ~EventPlayer() = default;
    EventPlayer(const EventPlayer &) = delete;
    EventPlayer &operator=(const EventPlayer &) = delete;

    // Plays one event on the calling thread: logs it, calls the hooks before it, applies it to the
    // machine and its registers, and calls the hooks after it. The hooks get the event's own
    // status, or the reason why it failed, which is also the result.
    pci_err_t play(const BusEvent &event);

    // Plays events. Returns why the first failed one failed; empty when all succeeded. Stops when
    // the server is told to end.
    std::string play(const std::vector<BusEvent> &events);

    // Parses like parse_bus_events(), and also rejects events that this player can never apply.
    std::vector<BusEvent> parse(std::string_view text, const std::string &file, unsigned domain,
                                std::size_t first_line = 1) const;

protected:
    // Returns why this player can never apply the event; empty when it can.
    virtual std::string refusal(const BusEvent &event) const = 0;
    virtual pci_err_t apply(const BusEvent &event) = 0;

    Machine &machine_;
};

// Makes the player that fits the source of the machine.
std::unique_ptr<EventPlayer> player_for(const MachineSource &source, Machine &machine);

}  // namespace host
