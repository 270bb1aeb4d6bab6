// The events file describes what happens to the machine after start-up.
//
//   insert BDF [VALUE [STATUS]]    functions below the bridge come (back)
//   remove BDF [VALUE [STATUS]]    functions below the bridge vanish
//   flr BDF [STATUS]               function-level reset
//   bus-reset BDF [STATUS]         secondary bus reset of the function's upstream bridge
//
// "#" begins a comment. Functions are written as lspci writes them; VALUE and STATUS are decimal,
// or hexadecimal with "0x". VALUE defaults to the bridge's secondary bus number, STATUS to 0.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/machine/machine.h"

namespace host {

enum class EventKind { INSERT, REMOVE, FLR, BUS_RESET };

struct BusEvent {
    EventKind kind;
    bdf_t bdf;            // the function that is named, as it is enumerated
    bridge_rec *bridge;   // the bridge above what changes; null for a function-level reset
    std::uint32_t value;  // for insertion and removal hooks
    int status;           // for all hooks, an error code
    std::string origin;   // "FILE:LINE: text"
};

// Returns true for a word that begins an event's line.
bool is_event_word(std::string_view word);

// Reads the text of `file`, whose lines are counted from `first_line` on, and checks every line on
// the machine as it would be when the line's turn comes. Changes nothing. Throws InputError with
// every bad line.
std::vector<BusEvent> parse_bus_events(std::string_view text, const std::string &file,
                                       Machine &machine, unsigned domain,
                                       std::size_t first_line = 1);

// Returns a text for each domain with the lines that belong to it, and empty lines in the place of
// others. An address without a domain is in domain 0; a line without an address belongs to the
// first. Throws InputError with every line of a domain that is not among them.
std::vector<std::string> split_bus_events(std::string_view text, const std::string &file,
                                          const std::vector<unsigned> &domains);

}  // namespace host
