// Machines that no vendor would build, from rows of bytes.
#pragma once

#include <optional>
#include <vector>

#include "fuzz/support.h"

namespace host::fuzz {

// A row, of which the first byte is the kind.
constexpr std::size_t ROW = 8;

// A function: made from a specification, or the one of an example machine; then changed.
struct HostileFunction {
    tests::FunctionSpec spec;
    const std::vector<std::uint8_t> *example = nullptr;
};

// Something happens to a function, or below it: a line of an events file; or the function is
// exchanged for one with the bytes that another had at first.
constexpr std::string_view SWAP = "swap";
struct HostileEvent {
    std::size_t function;  // index
    std::string_view word;
    std::optional<unsigned> value;  // of insertions and removals; of SWAP, the other's index
    unsigned status;
};

// A machine, the faults that it is to have, and what is done with it.
struct HostileMachine {
    std::vector<HostileFunction> functions;
    AccessFilter faults;          // empty: none
    unsigned failing_calloc = 0;  // for start_module_with()
    std::vector<bool> managed = std::vector<bool>(256, true);
    std::vector<std::size_t> with_events;  // indexes of functions that events happen to
    std::vector<HostileEvent> events;      // after start-up
    bool complete = false;                 // --complete
    std::string_view features;             // empty: none are given

    bool is_sound() const { return !faults && failing_calloc == 0; }
    MachineSource source() const;
};

// Rows are:
//   F  bus, device and function, port type (above 15: conventional), secondary bus,
//      subordinate bus, Max_Payload_Size Supported, flags (see machines.cc); further rows are
//      about this function
//   E  n: all functions of the n-th machine of examples/, if there are none yet; further rows are
//      about the last of them
//   G  n: further rows are about the n-th function
//   D  -, two bytes of offset (low first, counted in dwords), value (low first, 4 bytes)
//   X  n, -, error code (0: all ones are read), -...: from its n-th on, accesses to it fail
//   A  n: the n-th allocation of the module fails
//   S  n: another server manages bus n
//   V  n: every event happens to the n-th function
//   P  n, kind, VALUE, flags, STATUS: an event happens to the n-th function, by its kind a
//      function-level reset, a bus reset, an insertion or a removal, whose flags tell which of the
//      numbers it is given: 1 VALUE, 2 VALUE + 256, 4 STATUS; or it is swapped, for the function
//      with the number VALUE
//   C  the host completes hierarchies
//   T  the rest of the input, after this row, is the text of the feature file
// Rows that make no sense are passed over.
HostileMachine hostile_machine(Input rows);

}  // namespace host::fuzz
