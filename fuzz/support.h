// Shared by the fuzz targets: a small machine, hostile machines, the start of the module.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/machine/machine.h"
#include "host/space/config_image.h"
#include "host/space/machine_source.h"
#include "tests/support/test_machine.h"

namespace host::fuzz {

// Opens a log that formats every message and shows none. Call once, before anything else.
void open_silent_log();

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

// A machine that no vendor would build, and the faults that it is to have.
struct HostileMachine {
    std::vector<tests::FunctionSpec> functions;
    AccessFilter faults;          // empty: none
    unsigned failing_calloc = 0;  // for fail_calloc()
};

// From rows of 8 bytes, of which the first is the kind:
//   F  bus, device and function, port type (above 15: conventional), secondary bus,
//      subordinate bus, Max_Payload_Size Supported, flags (see support.cc); further rows are
//      about this function
//   D  -, two bytes of offset (low first, counted in dwords), value (low first, 4 bytes)
//   X  n, -, error code (0: all ones are read), -...: from its n-th on, accesses to it fail
//   A  n: the n-th allocation of the module fails
// Rows that make no sense are passed over.
HostileMachine hostile_machine(std::span<const std::uint8_t> rows);

// Makes a machine source from these functions.
MachineSource source_of(const std::vector<tests::FunctionSpec> &functions);

// Starts the module, in the state of a fresh load, with a feature file of this text.
void start_module_with(std::string_view features);

// Plays the lines that are valid, each parsed when its turn comes.
void play_each(const std::vector<std::string> &lines, const MachineSource &source,
               Machine &machine);

// Returns every event that can happen to a function.
std::vector<std::string> all_events_of(bdf_t bdf);

}  // namespace host::fuzz
