// Lines are looked at from the last one to the first. For each selection it is known by then which
// later line is the next to set it, so that the time grows with the lines and not with their
// square.
#include <algorithm>
#include <limits>
#include <map>
#include <utility>

#include "host/requests/values.h"
#include "platform/bdf.h"

namespace host {
namespace {

namespace module = enable_features;
using module::scope_t;
using module::selection_t;

constexpr std::size_t NO_LINE = std::numeric_limits<std::size_t>::max();

void remark_no_effect(std::size_t line, std::size_t first, std::size_t second, Remarks &remarks) {
    const std::string lines =
        first == second ? "line " + std::to_string(first)
                        : "lines " + std::to_string(first) + " and " + std::to_string(second);
    remarks.warning(line, "the line has no effect, because all that it sets is set again by " +
                              lines + ": leave it out, or write it behind");
}

// A selection in a form that is equal where the selected functions are.
using Key = std::pair<scope_t, bdf_t>;

Key key_of(scope_t scope, bdf_t bdf) {
    switch (scope) {
    case scope_t::every_function:
        return {scope, BDF_NONE};
    case scope_t::bus:
        return {scope, pci::plain_bdf(pci::bus_of(bdf), 0, 0)};
    case scope_t::device:  // ARI functions count as those of device 0
        return {scope, pci::plain_bdf(pci::bus_of(bdf), pci::device_of(bdf), 0)};
    case scope_t::single:
        break;
    }
    return {scope, bdf};
}

// The next line that sets each selection.
class NextLines {
public:
    void set(const selection_t &selection, std::size_t line) {
        lines_[key_of(selection.scope, selection.bdf)] = line;
    }

    // Returns the next line that sets all that is selected; NO_LINE when there is none.
    std::size_t covering(const selection_t &selection) const {
        constexpr scope_t SCOPES[] = {scope_t::every_function, scope_t::bus, scope_t::device,
                                      scope_t::single};
        std::size_t next = NO_LINE;
        for (const scope_t scope : SCOPES) {
            const auto found = lines_.find(key_of(scope, selection.bdf));
            if (found != lines_.end())
                next = std::min(next, found->second);
            if (scope == selection.scope)
                break;  // the scopes behind it select less
        }
        return next;
    }

private:
    std::map<Key, std::size_t> lines_;
};

}  // namespace

// A later size for the same device, by whichever of its functions, replaces an earlier one.
void check_overridden(const std::vector<MpsRequest> &requests, Remarks &remarks) {
    NextLines next;
    for (auto request = requests.rbegin(); request != requests.rend(); ++request) {
        const selection_t selection =
            request->bdf == BDF_NONE
                ? selection_t{scope_t::every_function, BDF_NONE}
                : selection_t{scope_t::single, pci::function_0_of(request->bdf)};
        if (const std::size_t line = next.covering(selection); line != NO_LINE)
            remark_no_effect(request->line, line, line, remarks);
        next.set(selection, request->line);
    }
}

// Generation and checking of the same function may be set again by different lines.
void check_overridden(const std::vector<EcrcRequest> &requests, Remarks &remarks) {
    NextLines next_gen, next_chk;
    for (auto request = requests.rbegin(); request != requests.rend(); ++request) {
        std::size_t gen = next_gen.covering(request->selection);
        std::size_t chk = next_chk.covering(request->selection);
        gen = request->requests.gen != 0 ? gen : chk;
        chk = request->requests.chk != 0 ? chk : gen;
        if (gen != NO_LINE && chk != NO_LINE)
            remark_no_effect(request->line, std::min(gen, chk), std::max(gen, chk), remarks);
        if (request->requests.gen != 0)
            next_gen.set(request->selection, request->line);
        if (request->requests.chk != 0)
            next_chk.set(request->selection, request->line);
    }
}

}  // namespace host
