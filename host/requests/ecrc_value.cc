#include "host/base/address.h"
#include "host/requests/numbers.h"
#include "host/requests/values.h"
#include "platform/bdf.h"

namespace host {
namespace {

namespace module = enable_features;
using module::scope_t;

// Remarks on a field of which only the first character counts.
void check_setting(std::string_view field, const char *name, std::size_t line, Remarks &remarks) {
    constexpr std::string_view SETTINGS = "+-=";
    if (SETTINGS.find(field.front()) == std::string_view::npos)
        remarks.error(line,
                      std::string(name) + " " + in_quotes(field) +
                          " is no setting, the line is dropped: write + (enable), - (disable) "
                          "or = (leave alone)");
    else if (field.size() > 1)
        remarks.unread(line, in_quotes(field.substr(1)) + " behind " + name + " " +
                                 std::string(field.substr(0, 1)) + " is ignored: leave it out");
}

// Returns false when the line is dropped.
bool check_selection(const char *field, std::size_t line, Remarks &remarks,
                     module::selection_t *selection) {
    *selection = {scope_t::every_function, BDF_NONE};
    if (module::names_every_function(field))
        return true;
    std::string text = field;
    const module::selection_result_t result = module::read_selection(text.data());
    *selection = result.selection;
    const bool accepted = result.fault == module::selection_fault_t::none;
    if (std::string_view(field).starts_with('*') || result.parts[0] == nullptr)
        remarks.error(line, in_quotes(field) + " is no address, the line is dropped: write all for "
                                               "every function");
    else if (result.fault == module::selection_fault_t::form)
        remarks.error(line, in_quotes(field) +
                                " is no address, the line is dropped: write B, B.*, B.F, "
                                "B.D.* or B.D.F");
    else
        check_address(result.parts, result.further, line, remarks);
    return accepted;
}

const char *setting_text(module::ecrc_setting setting) {
    return setting > 0 ? "on" : setting < 0 ? "off" : "left alone";
}

std::string selection_text(const module::selection_t &selection) {
    const std::string bus = bus_text(pci::bus_of(selection.bdf));
    switch (selection.scope) {
    case scope_t::bus:
        return "every function on bus " + bus;
    case scope_t::device:
        return "every function of device " + std::to_string(pci::device_of(selection.bdf)) +
               (pci::device_of(selection.bdf) == 0 ? ", and every ARI function," : "") +
               " on bus " + bus;
    case scope_t::single:
        return bdf_text(selection.bdf);
    case scope_t::every_function:
        break;
    }
    return "every function";
}

}  // namespace

std::optional<EcrcRequest> read_ecrc(const FeatureLine &line, Remarks &remarks) {
    std::string value = line.value;
    const module::ecrc_fields_t fields = module::cut_ecrc_value(value.data());
    if (fields.chk == nullptr) {
        remarks.error(line.number, lacking_field(line));
        return std::nullopt;
    }
    EcrcRequest request = {
        .line = line.number, .value = line.value, .selection = {}, .requests = {}};
    const bool selected =
        check_selection(fields.functions, line.number, remarks, &request.selection);
    check_setting(fields.gen, "generation", line.number, remarks);
    check_setting(fields.chk, "checking", line.number, remarks);
    if (fields.further != nullptr)
        remarks.unread(line.number,
                       in_quotes(fields.further) + " behind checking is ignored: leave it out");
    if (!selected || !module::read_requests(fields.gen, fields.chk, &request.requests))
        return std::nullopt;
    if (request.requests.gen != 0 || request.requests.chk != 0)
        return request;
    remarks.warning(line.number, "the line leaves both settings alone and does nothing: write + or "
                                 "- for one of them");
    return std::nullopt;
}

std::string text_of(const EcrcRequest &request) {
    return selection_text(request.selection) + ", generation " +
           setting_text(request.requests.gen) + ", checking " + setting_text(request.requests.chk);
}

}  // namespace host
