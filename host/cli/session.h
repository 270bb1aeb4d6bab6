// One run on a machine, from the options to the report.
#pragma once

#include <iosfwd>
#include <memory>
#include <optional>
#include <vector>

#include "host/base/module_faults.h"
#include "host/cli/options.h"
#include "host/cli/traffic.h"
#include "host/exports/serve.h"
#include "host/machine/machine.h"
#include "host/modules/module_loader.h"
#include "host/report/report.h"
#include "host/requests/judge.h"
#include "host/space/machine_source.h"
#include "host/space/output_file.h"
#include "host/watch/event_player.h"
#include "host/watch/service.h"

namespace host {

// The events to play after start-up.
struct EventText {
    std::string name;  // for messages
    std::string text;
};

// Throws InputError. `in` is standard input.
EventText read_events(const Options &options, std::istream &in);

// Serves its machine as long as it lives; one session at a time. `options` must outlive it.
class Session {
public:
    // Reads and checks the machine and all other input; no module runs and nothing is written yet.
    // Throws InputError, DumpError, LiveError, and TrafficError for a machine that must not be
    // written now.
    Session(const Options &options, std::vector<ModuleEntry> modules, MachineSource source,
            const EventText &events);

    // Starts the modules, and plays the events.
    void start();

    // With --watch: serves until the server is told to end.
    void stay();

    // Writes the dump and the report, the latter to `out`. Returns the exit status.
    int finish(std::ostream &out);

    // Returns what the lines of feature files have come to so far.
    std::vector<RequestReport> requests();

private:
    int check() const;
    bool save();
    bool write_report(std::ostream &out) const;

    // With --strict, returns false, after errors, when what feature files ask for is not reached.
    bool reaches_requests();

    const Options &options_;
    const std::vector<ModuleEntry> modules_;
    const MachineSource source_;
    std::optional<OutputFile> output_;
    const std::unique_ptr<Service> service_;
    const std::unique_ptr<Machine> machine_;
    const std::unique_ptr<EventPlayer> player_;
    const std::vector<BusEvent> events_;
    const LeftAlone left_alone_;
    const ExitWatch exit_watch_;
    const Serving serving_;
    Report report_;
    std::vector<FeatureFile> feature_files_;
    std::vector<ModuleResult> results_;
    bool all_done_ = true;
};

}  // namespace host
