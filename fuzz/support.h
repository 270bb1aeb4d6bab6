// Shared by the fuzz targets: a log that formats every message of the module and shows none, the
// start of the module, events, and the record of states.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/machine/machine.h"
#include "host/space/config_image.h"
#include "host/space/machine_source.h"
#include "tests/support/test_machine.h"

namespace host::fuzz {

using Input = std::span<const std::uint8_t>;

// A file in memory.
class MemoryFile {
public:
    MemoryFile();
    void set(std::string_view text) const;
    const std::string &path() const { return path_; }

private:
    int descriptor_;
    std::string path_;
};

// A machine with a switch, an ARI device, a conventional bus, an event collector and an integrated
// endpoint.
std::vector<tests::FunctionSpec> small_machine();

// Makes a machine source from these functions.
MachineSource source_of(const std::vector<tests::FunctionSpec> &functions);

// Starts the module, in the state of a fresh load, with a feature file of this text. Above 0, the
// n-th allocation of the module fails.
void start_module_with(std::string_view features, unsigned failing_calloc = 0);

// Plays the lines that are valid, each parsed when its turn comes.
void play_each(const std::vector<std::string> &lines, const MachineSource &source,
               Machine &machine);

// Returns every event that can happen to a function.
std::vector<std::string> all_events_of(bdf_t bdf);

// Ends an execution. With a file in the environment variable FUZZ_STATES, adds a line to it: a hash
// of the input, and one of the log's messages since the last call and of the image's bytes.
void end_execution(Input input, const ConfigImage &image);

}  // namespace host::fuzz
