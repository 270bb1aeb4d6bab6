// The tables that the page of a fleet holds. Where machines share a state, what is in it stands
// once, so that the page of a large fleet stays small.
#pragma once

#include <array>

namespace fleet {

// A query over what FleetStore holds, of which the page has the names of columns and the rows.
struct PageTable {
    const char *name;
    const char *query;
};
extern const std::array<PageTable, 13> PAGE_TABLES;

}  // namespace fleet
