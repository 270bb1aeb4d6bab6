// Chooses which functions of a report are shown. What is written to the machine and the exit status
// never depend on it.
#pragma once

#include <vector>

#include "host/report/report.h"
#include "host/space/slot_filter.h"

namespace host {

enum class Only {
    CHANGED,   // a setting differs from before
    PCIE,      // has a PCI Express capability, or is a virtual function
    PROBLEMS,  // an error or a warning names it, or it does not answer
};

// A function is selected by any of the slots, which also select all that is below them, and by any
// of the words; where there are no slots, or no words, by that.
struct Selection {
    std::vector<SlotFilter> slots;
    std::vector<Only> only;

    bool is_everything() const { return slots.empty() && only.empty(); }
};

// Marks what is selected of a report that has come to its end.
void select_functions(Report &report, const Selection &selection);

// Returns true when any function is shown that the finding is about.
bool is_shown(const Report &report, const Finding &finding);

}  // namespace host
