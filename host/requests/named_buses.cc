#include "host/requests/named_buses.h"

#include <algorithm>
#include <array>

#include "host/base/address.h"
#include "host/requests/values.h"
#include "platform/pci_regs.h"

namespace host {
namespace {

constexpr std::array<std::string_view, 2> DROPPED = {
    " shares a common path element and MPS is already set to ", " is not capable of ECRC "};

void add(Buses &buses, const Request &request) {
    if (request.mps && request.mps->bdf != BDF_NONE)
        buses.set(pci::bus_of(request.mps->bdf));
    if (request.ecrc && request.ecrc->selection.scope != enable_features::scope_t::every_function)
        buses.set(pci::bus_of(request.ecrc->selection.bdf));
}

}  // namespace

Buses named_buses(std::span<const FeatureFile> files) {
    Buses buses;
    Remarks ignored;
    for (const FeatureFile &file : files) {
        for (const FeatureLine &line : read_lines(file.text, ignored))
            add(buses, read_request(line, nullptr, ignored));
        if (!file.unusable.empty())
            buses.set();
    }
    if (files.empty())
        buses.set();
    return buses;
}

bool is_no_loss(std::string_view warning, const Buses &named) {
    const auto bus = bus_in(warning);
    return bus && !named.test(*bus) && std::ranges::any_of(DROPPED, [&](std::string_view text) {
               return warning.find(text) != std::string_view::npos;
           });
}

}  // namespace host
