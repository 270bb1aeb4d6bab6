// The fields are examined in their order and the first mistake drops the record. ecrc_value.h tells
// what they hold.
#include "features/ecrc/parameters.h"

#include "feature_file/ecrc_value.h"
#include "features/ecrc/entry_list.h"
#include "module/base/copy_text.h"
#include "module/base/log.h"
#include "module/base/managed.h"
#include "platform/pci_access.h"

namespace enable_features {

namespace {

constexpr char PARSER[] = "param_parse_ecrc";  // the parser's name in messages

// The parts of a record that messages quote.
struct record_t {
    const char *keyword;
    const char *param;      // the whole value
    const char *functions;  // its first field
};

void report_record(const record_t &record, pci_err_t status) {
    LOG_INFO(2, "Add record '%s=%s', %s", record.keyword, record.param, pci_strerror(status));
}

void report_no_memory(const record_t &record) {
    LOG_ERROR(0, "%s, (param '%s') %s, ignoring record", PARSER, record.param,
              pci_strerror(PCI_ERR_NO_MEMORY));
}

// The log gets the format, so each kind of message keeps its own, also where two read alike.
void report_bad_selection(const record_t &record, selection_fault_t fault) {
    if (fault == selection_fault_t::bus)
        LOG_ERROR(0, "%s, (param '%s') bad BDF bus value '%s', ignoring record", PARSER,
                  record.param, record.functions);
    else if (fault == selection_fault_t::form)
        LOG_ERROR(0, "%s, (param '%s') bad BDF value '%s', ignoring record", PARSER, record.param,
                  record.functions);
    else if (fault == selection_fault_t::function)
        LOG_ERROR(0, "%s, (param '%s') bad BDF function value '%s', ignoring record", PARSER,
                  record.param, record.functions);
    else
        LOG_ERROR(0, "%s, (param '%s') bad BDF %s value '%s', ignoring record", PARSER,
                  record.param, fault == selection_fault_t::device ? "device" : "function",
                  record.functions);
}

bool parse_requests(const record_t &record, const char *gen, const char *chk,
                    requests_t *requests) {
    if (!read_requests(gen, chk, requests)) {
        LOG_ERROR(0, "%s, (param '%s') bad ECRC gen or check values '%s'/'%s', ignoring record",
                  PARSER, record.param, gen, chk);
        return false;
    }
    if (requests->gen == 0 && requests->chk == 0) {
        LOG_WARNING(2, "ignoring record which doesn't change anything");
        return false;
    }
    return true;
}

void record_single(const record_t &record, bdf_t bdf, requests_t requests) {
    if (skip_unmanaged(PARSER, bdf))
        return;
    report_record(record, ecrc_add_or_update_entry(bdf, requests.gen, requests.chk));
}

// A function that cannot switch ECRC does not end a set; any other failure does.
void record_set(const record_t &record, const selection_t &selection, requests_t requests) {
    pci_err_t status = PCI_OK;
    for (std::uint32_t i = 0; status == PCI_OK; i++) {
        const bdf_t bdf = pci_device_find(i, ANY_VENDOR, ANY_DEVICE, ANY_CLASS);
        if (bdf == BDF_NONE)
            break;
        if (skip_unmanaged(PARSER, bdf) || !is_selected(selection, bdf))
            continue;
        const pci_err_t result = ecrc_add_or_update_entry(bdf, requests.gen, requests.chk);
        LOG_DEBUG(3, "Add/update ECRC entry for B%u:D%u:F%u, gen=%d, chk=%d, %s", BDF_ARGS(bdf),
                  requests.gen, requests.chk, pci_strerror(result));
        if (result != PCI_ERR_NOT_SUPPORTED)
            status = result;
    }
    report_record(record, status);
}

// Reads the functions that the first field selects. Returns false when the record is to be dropped.
bool select_functions(const record_t &record, selection_t *selection) {
    *selection = {scope_t::every_function, BDF_NONE};
    if (names_every_function(record.functions))
        return true;
    const heap_ptr<char> copy = copy_text(record.functions);
    if (copy == nullptr) {
        report_no_memory(record);
        return false;
    }
    const selection_result_t result = read_selection(copy.get());
    if (result.fault != selection_fault_t::none) {
        report_bad_selection(record, result.fault);
        return false;
    }
    *selection = result.selection;
    return true;
}

}  // namespace

void param_parse_ecrc(const char *keyword, char *value, feature_t *) {
    const heap_ptr<char> param = copy_text(value);
    record_t record = {.keyword = keyword, .param = param.get(), .functions = nullptr};
    if (param == nullptr) {
        record.param = value;  // not cut yet
        return report_no_memory(record);
    }
    const ecrc_fields_t fields = cut_ecrc_value(value);
    record.functions = fields.functions;
    if (fields.chk == nullptr) {
        LOG_ERROR(0, "%s, Invalid ECRC parameter value '%s', all fields required", PARSER,
                  record.param);
        return;
    }
    selection_t selection = {};
    requests_t requests = {};
    if (!select_functions(record, &selection) ||
        !parse_requests(record, fields.gen, fields.chk, &requests))
        return;
    if (selection.scope == scope_t::single)
        record_single(record, selection.bdf, requests);
    else
        record_set(record, selection, requests);
}

}  // namespace enable_features
