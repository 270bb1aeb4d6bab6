// Runs on several domains. An address that modules see has no domain, so each domain has a server
// process of its own.
#pragma once

#include <iosfwd>
#include <vector>

#include "host/cli/options.h"
#include "host/cli/session.h"
#include "host/modules/host_config.h"
#include "host/space/machine_source.h"

namespace host {

// Runs a session for each source in a child process, one after the other, when all of them have
// read and checked their input; where one cannot be used, none does anything. Writes what they
// report to `out` as one report, and with --output one dump. Returns the gravest exit status.
// Throws InputError when there are too many sources. No other thread may run.
int run_domains(const Options &options, const HostConfig &config,
                std::vector<MachineSource> sources, const EventText &events, std::ostream &out);

}  // namespace host
