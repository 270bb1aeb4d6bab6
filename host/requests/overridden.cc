#include "host/requests/values.h"
#include "platform/bdf.h"

namespace host {
namespace {

namespace module = enable_features;
using module::scope_t;
using module::selection_t;

// Returns true when `later` selects every function that `earlier` may select.
bool covers(const selection_t &later, const selection_t &earlier) {
    if (later.scope == scope_t::every_function)
        return true;
    if (later.scope == scope_t::single)
        return earlier.scope == scope_t::single && earlier.bdf == later.bdf;
    if (earlier.scope == scope_t::every_function ||
        (earlier.scope == scope_t::bus && later.scope == scope_t::device))
        return false;
    return module::is_selected(later, earlier.bdf);
}

void remark_no_effect(std::size_t line, const std::string &later, Remarks &remarks) {
    remarks.warning(line, "the line has no effect, because all that it sets is set again by line " +
                              later + ": leave it out, or write it behind");
}

}  // namespace

// A later size for the same device, by whichever of its functions, replaces an earlier one.
void check_overridden(const std::vector<MpsRequest> &requests, Remarks &remarks) {
    for (auto earlier = requests.begin(); earlier != requests.end(); ++earlier)
        for (auto later = earlier + 1; later != requests.end(); ++later)
            if (later->bdf == BDF_NONE ||
                (earlier->bdf != BDF_NONE &&
                 pci::function_0_of(earlier->bdf) == pci::function_0_of(later->bdf))) {
                remark_no_effect(earlier->line, std::to_string(later->line), remarks);
                break;
            }
}

// Generation and checking of the same function may be set again by different lines.
void check_overridden(const std::vector<EcrcRequest> &requests, Remarks &remarks) {
    for (auto earlier = requests.begin(); earlier != requests.end(); ++earlier) {
        module::requests_t left = earlier->requests;
        std::string lines;
        for (auto later = earlier + 1; later != requests.end() && (left.gen || left.chk); ++later) {
            if (!covers(later->selection, earlier->selection) ||
                !((left.gen && later->requests.gen) || (left.chk && later->requests.chk)))
                continue;
            left.gen = later->requests.gen ? 0 : left.gen;
            left.chk = later->requests.chk ? 0 : left.chk;
            lines += (lines.empty() ? "" : " and ") + std::to_string(later->line);
        }
        if (!left.gen && !left.chk)
            remark_no_effect(earlier->line, lines, remarks);
    }
}

}  // namespace host
