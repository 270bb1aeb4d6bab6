// A run that stays after start-up.
#pragma once

#include <ctime>

#include "host/report/report.h"
#include "host/watch/event_player.h"
#include "host/watch/service.h"

namespace host {

// What a server that stays works on.
struct Stay {
    const MachineSource &source;
    unsigned domain;
    Machine &machine;
    EventPlayer &player;
    const std::vector<ModuleResult> &modules;
    Report &report;  // is kept up to date
};

// Serves until the server is told to end. What failed at start-up is said when it has ended, which
// the end of the service may be long after. False when an event that nobody was answered about
// could not be brought about, and when there is no module to tell of events.
bool stay(Service &service, const Stay &stay);

// Does what a line says that has come to a server that stays: an event, or of a client, which gets
// an answer, also a question. `started` is when start-up was done.
LineServer::Outcome execute(const LineServer::Line &line, const Stay &stay, std::time_t started);

}  // namespace host
