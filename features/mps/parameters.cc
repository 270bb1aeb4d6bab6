// The endpoint is examined before the size, so that a value with both bad reports the endpoint. An
// absent endpoint, or a function that is no endpoint, is dropped without a message, because one
// file may serve several machines.
#include "features/mps/parameters.h"

#include "feature_file/mps_value.h"
#include "features/mps/endpoint_list.h"
#include "module/base/copy_text.h"
#include "module/base/log.h"
#include "platform/pci_access.h"
#include "topology/classification.h"

namespace enable_features {

namespace {

constexpr char PARSER[] = "param_parse_mps";  // the parser's name in messages

// `whole` is the value and `field` its endpoint, both as written. The log gets the format, so each
// kind of message keeps its own, also where two read alike.
void report_bad_endpoint(ep_fault_t fault, const char *whole, const char *field) {
    if (fault == ep_fault_t::bus)
        LOG_ERROR(0, "%s, (param '%s') bad EP bus value '%s', ignoring record", PARSER, whole,
                  field);
    else if (fault == ep_fault_t::function)
        LOG_ERROR(0, "%s, (param '%s') bad EP function value '%s', ignoring record", PARSER, whole,
                  field);
    else
        LOG_ERROR(0, "%s, (param '%s') bad EP %s value '%s', ignoring record", PARSER, whole,
                  fault == ep_fault_t::device ? "device" : "function", field);
}

void report_record(const char *name, const char *whole, pci_err_t result) {
    LOG_INFO(2, "Add record '%s=%s', %s", name, whole, pci_strerror(result));
}

void report_no_memory(const char *whole) {
    LOG_ERROR(0, "%s, (param '%s') %s, ignoring record", PARSER, whole,
              pci_strerror(PCI_ERR_NO_MEMORY));
}

// Finds the endpoint that the field names, cutting the field up. Returns false when the record is
// to be dropped. The copy that messages need is freed before the endpoint is looked up.
bool find_endpoint(const char *whole, char *field, bdf_t *bdf) {
    *bdf = BDF_NONE;
    if (names_every_endpoint(field))
        return true;
    heap_ptr<char> field_text = copy_text(field);
    if (field_text == nullptr) {
        report_no_memory(whole);
        return false;
    }
    const ep_result_t result = read_endpoint(field);
    if (result.fault != ep_fault_t::none) {
        report_bad_endpoint(result.fault, whole, field_text.get());
        return false;
    }
    field_text.reset();
    *bdf = result.bdf;
    return is_an_ep(result.bdf, nullptr);
}

}  // namespace

void param_parse_mps(const char *name, char *value, feature_t * /*row*/) {
    const heap_ptr<char> whole = copy_text(value);
    if (whole == nullptr) {
        report_no_memory(value);
        return;
    }
    const mps_fields_t fields = cut_mps_value(value);
    if (fields.size == nullptr) {
        LOG_ERROR(0, "%s, Invalid MPS parameter value '%s', both fields required", PARSER,
                  whole.get());
        return;
    }

    bdf_t bdf = BDF_NONE;
    if (!find_endpoint(whole.get(), fields.endpoint, &bdf))
        return;
    std::uint32_t size = 0;
    if (!read_payload_size(fields.size, &size)) {
        LOG_ERROR(0, "%s, (param '%s') bad mps value '%s', ignoring record", PARSER, whole.get(),
                  fields.size);
        return;
    }
    report_record(name, whole.get(), mps_update_entry(bdf, size));
}

}  // namespace enable_features
