// libpci reads the text, so that it means what it means to lspci.
#include "host/space/slot_filter.h"

extern "C" {
#include <pci/pci.h>
}

#include "host/base/input.h"
#include "platform/bdf.h"

namespace host {
namespace {

std::optional<unsigned> part(int value) {
    return value < 0 ? std::nullopt : std::optional(static_cast<unsigned>(value));
}

bool is_or_any(const std::optional<unsigned> &wanted, unsigned value) {
    return !wanted || *wanted == value;
}

}  // namespace

bool SlotFilter::matches(unsigned domain_of_function, RoutingId id) const {
    return is_or_any(domain, domain_of_function) && is_or_any(bus, pci::bus_of(id)) &&
           is_or_any(device, pci::device_of(id)) && is_or_any(function, pci::function_of(id));
}

// libpci writes into the text that it reads. It wants no access to a machine for either call.
SlotFilter parse_slot_filter(const std::string &text) {
    pci_filter filter{};
    pci_filter_init(nullptr, &filter);
    std::string parsed = text;
    if (const char *const complaint = pci_filter_parse_slot(&filter, parsed.data()))
        throw InputError("-s: \"" + excerpt(text) + "\": " + complaint +
                         " (as lspci: [[[[domain]:]bus]:][device][.[function]])");
    return {.text = text,
            .domain = part(filter.domain),
            .bus = part(filter.bus),
            .device = part(filter.slot),
            .function = part(filter.func)};
}

}  // namespace host
