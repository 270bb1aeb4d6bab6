// The part of a run that stays after start-up.
#pragma once

#include <ctime>
#include <span>

#include "host/report/report.h"
#include "host/requests/judge.h"
#include "host/watch/event_player.h"
#include "host/watch/service.h"

namespace host {

// The objects that a server that stays works on.
struct Stay {
    const MachineSource &source;
    unsigned domain;
    Machine &machine;
    EventPlayer &player;
    const std::vector<ModuleResult> &modules;
    Report &report;  // is kept up to date
    std::span<const FeatureFile> feature_files{};
};

// Serves until the server is told to end. Failed accesses of start-up are logged before that,
// because the end may be long after. Returns false when an event from a source
// without answers failed, and when no module runs.
bool stay(Service &service, const Stay &stay);

// Executes one line that has come to a server that stays: an event or, from a client, which gets an
// answer, a question. `started` is when start-up was done.
LineServer::Outcome execute(const LineServer::Line &line, const Stay &stay, std::time_t started);

}  // namespace host
