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

    // On the calling thread: the event is logged, then come the hooks before it, what it does to
    // the machine and its registers, and the hooks after it. The hooks learn the event's own
    // status, or why it could not be brought about, which is also the result.
    pci_err_t play(const BusEvent &event);

    // Why one of them, the first, could not be brought about; empty when all could. Being told to
    // end comes before what is left.
    std::string play(const std::vector<BusEvent> &events);

    // As parse_bus_events(); what cannot be brought about at all is a bad line too.
    std::vector<BusEvent> parse(std::string_view text, const std::string &file, unsigned domain,
                                std::size_t first_line = 1) const;

protected:
    // What cannot be brought about at all, as the reason; empty otherwise.
    virtual std::string refusal(const BusEvent &event) const = 0;
    virtual pci_err_t apply(const BusEvent &event) = 0;

    Machine &machine_;
};

// The player for what the machine was made from.
std::unique_ptr<EventPlayer> player_for(const MachineSource &source, Machine &machine);

}  // namespace host
