// The parts of the result, as queries over what FleetStore holds.
#pragma once

#include <array>

namespace fleet {

// Creates the views "totals", a single row, and those that SECTIONS names. Their columns are those
// of the forms for programs.
extern const char *const VIEWS;

constexpr std::array<const char *, 4> SECTIONS = {"limits", "differences", "findings", "requests"};

// The same for people. A query with one column gives sentences, others a table; without rows there
// is no title either.
struct Passage {
    const char *title;  // null for none
    const char *query;
};
extern const std::array<Passage, 6> PASSAGES;

}  // namespace fleet
