#include "host/requests/view.h"

#include <algorithm>
#include <cstdlib>
#include <optional>

#include "host/base/address.h"
#include "host/base/words.h"
#include "host/requests/numbers.h"
#include "platform/bdf.h"

namespace host {
namespace {

namespace module = enable_features;
using module::scope_t;
using module::selection_t;

// Returns the number that the decimal digits of `number` are in hexadecimal.
std::optional<unsigned> as_hexadecimal(unsigned number, unsigned highest) {
    const auto read = parse_hex(std::to_string(number));
    return read && *read <= highest ? read : std::nullopt;
}

std::optional<selection_t> with_hexadecimal(const selection_t &selection) {
    const auto bus = as_hexadecimal(pci::bus_of(selection.bdf), pci::HIGHEST_BUS);
    if (!bus)
        return std::nullopt;
    if (selection.bdf != pci::routing_id_of(selection.bdf))
        return selection_t{selection.scope, pci::ari_bdf(*bus, pci::function_of(selection.bdf))};
    const auto device = as_hexadecimal(pci::device_of(selection.bdf), pci::HIGHEST_DEVICE);
    if (!device)
        return std::nullopt;
    return selection_t{selection.scope,
                       pci::plain_bdf(*bus, *device, pci::function_of(selection.bdf))};
}

}  // namespace

const FunctionReport *function_at(const MachineView &view, bdf_t bdf) {
    const auto id = [](const FunctionReport &row) { return row.function.id(); };
    const auto &rows = view.report.functions;
    const auto found = std::ranges::lower_bound(rows, pci::routing_id_of(bdf), {}, id);
    return found != rows.end() && id(*found) == pci::routing_id_of(bdf) ? &*found : nullptr;
}

Rows selected(const MachineView &view, const selection_t &selection) {
    Rows rows;
    for (const FunctionReport &row : view.report.functions) {
        const Function &function = row.function;
        if (!view.machine.reachable(function))
            continue;
        if (selection.scope == scope_t::single ? function.id() == pci::routing_id_of(selection.bdf)
                                               : module::is_selected(selection, function.bdf))
            rows.push_back(&row);
    }
    return rows;
}

std::string suggestion(const MachineView &view, const std::string &value,
                       const selection_t &selection,
                       const std::function<bool(bdf_t bdf)> &is_wanted) {
    const auto wanted = [&](const FunctionReport *row) { return is_wanted(row->function.bdf); };
    const std::string address = value.substr(0, value.find(':', 1));
    const bool decimal = address.find_first_of("xX") == std::string::npos;
    if (const auto other = decimal ? with_hexadecimal(selection) : std::nullopt) {
        const Rows rows = selected(view, *other);
        if (const auto found = std::ranges::find_if(rows, wanted); found != rows.end())
            return "numbers are decimal, lspci's " + (*found)->address + " is written " +
                   written((*found)->function.bdf);
    }
    Rows rows = selected(view, {scope_t::every_function, BDF_NONE});
    std::erase_if(rows, [&](const FunctionReport *row) { return !wanted(row); });
    if (rows.empty())
        return "leave it out, this machine has none";
    const auto away = [&](const FunctionReport *row) {
        return std::abs(int{row->function.id()} - int{pci::routing_id_of(selection.bdf)});
    };
    const FunctionReport *const nearest = *std::ranges::min_element(rows, {}, away);
    return "the nearest is " + nearest->address + ", written " + written(nearest->function.bdf);
}

std::string wrong_form(const Function &function, bdf_t named) {
    if (function.bdf == named)
        return "";
    const bool is_ari = function.bdf != function.id();
    return bdf_text(named) +
           (is_ari ? " is an ARI function, which has two numbers: write "
                   : " is no ARI function, and has three numbers: write ") +
           written(function.bdf);
}

}  // namespace host
