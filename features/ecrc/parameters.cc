// A value has three fields, separated by ":".
//   functions   all   every function      B    every function on bus B
//               B.*   those of device 0 on bus B, ARI functions among them
//               B.F   ARI function F      B.D.*   those of device D      B.D.F   one function
//   generation  "+" enable, "-" disable, "=" no change; only the first character counts
//   checking    likewise
// The fields are examined in that order and the first mistake drops the record. Separators run
// together, further fields and parts are ignored, and so is what follows a number's digits.
#include "features/ecrc/parameters.h"

#include <strings.h>

#include <cstring>

#include "features/ecrc/entry_list.h"
#include "module/base/log.h"
#include "module/base/managed.h"
#include "module/base/value_text.h"
#include "platform/pci_access.h"

namespace enable_features {

namespace {

constexpr char PARSER[] = "param_parse_ecrc";  // the parser's name in messages

enum class scope_t { every_function, bus, device, single };

// The functions that a record selects. For scopes `bus` and `device`, `bdf` holds the bus, or the
// bus and the device, to compare with.
struct selection_t {
    scope_t scope;
    bdf_t bdf;
};

struct requests_t {
    ecrc_setting gen;
    ecrc_setting chk;
};

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

void report_bad_number(const record_t &record, const char *what) {
    LOG_ERROR(0, "%s, (param '%s') bad BDF %s value '%s', ignoring record", PARSER, record.param,
              what, record.functions);
}

// Reads the forms B.* and B.F.
bool parse_two_parts(const record_t &record, unsigned bus, const char *second,
                     selection_t *selection) {
    if (*second == '*') {
        *selection = {scope_t::device, pci::ari_bdf(bus, 0)};
        return true;
    }
    unsigned function = 0;
    if (!read_number(second, pci::HIGHEST_ARI_FUNCTION, &function)) {
        report_bad_number(record, "function");
        return false;
    }
    *selection = {scope_t::single, pci::ari_bdf(bus, function)};
    return true;
}

// Reads the forms B.D.* and B.D.F.
bool parse_three_parts(const record_t &record, unsigned bus, const char *second, const char *third,
                       selection_t *selection) {
    unsigned device = 0;
    if (!read_number(second, pci::HIGHEST_DEVICE, &device)) {
        report_bad_number(record, "device");
        return false;
    }
    if (*third == '*') {
        *selection = {scope_t::device, pci::plain_bdf(bus, device, 0)};
        return true;
    }
    unsigned function = 0;
    if (!read_number(third, pci::HIGHEST_FUNCTION, &function)) {
        LOG_ERROR(0, "%s, (param '%s') bad BDF function value '%s', ignoring record", PARSER,
                  record.param, record.functions);
        return false;
    }
    *selection = {scope_t::single, pci::plain_bdf(bus, device, function)};
    return true;
}

// Reads the first field; cuts `text`, a copy of it.
bool parse_functions(const record_t &record, char *text, selection_t *selection) {
    char *rest = nullptr;
    const char *bus_text = strtok_r(text, ".", &rest);
    const char *second = bus_text != nullptr ? strtok_r(nullptr, ".", &rest) : nullptr;
    const char *third = second != nullptr ? strtok_r(nullptr, ".", &rest) : nullptr;
    unsigned bus = 0;
    if (bus_text == nullptr || !read_number(bus_text, pci::HIGHEST_BUS, &bus)) {
        LOG_ERROR(0, "%s, (param '%s') bad BDF bus value '%s', ignoring record", PARSER,
                  record.param, record.functions);
        return false;
    }
    if (second == nullptr) {
        *selection = {scope_t::bus, pci::plain_bdf(bus, 0, 0)};
        return true;
    }
    if (!is_hex_digit(*second) && (*second != '*' || third != nullptr)) {
        LOG_ERROR(0, "%s, (param '%s') bad BDF value '%s', ignoring record", PARSER, record.param,
                  record.functions);
        return false;
    }
    return third == nullptr ? parse_two_parts(record, bus, second, selection)
                            : parse_three_parts(record, bus, second, third, selection);
}

bool parse_setting(const char *text, ecrc_setting *setting) {
    switch (*text) {
    case '+':
        *setting = 1;
        return true;
    case '-':
        *setting = -1;
        return true;
    case '=':
        *setting = 0;
        return true;
    default:
        return false;
    }
}

bool parse_requests(const record_t &record, const char *gen, const char *chk,
                    requests_t *requests) {
    if (!parse_setting(gen, &requests->gen) || !parse_setting(chk, &requests->chk)) {
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

bool is_selected(const selection_t &selection, bdf_t bdf) {
    if (selection.scope == scope_t::every_function)
        return true;
    if (pci::bus_of(bdf) != pci::bus_of(selection.bdf))
        return false;
    return selection.scope == scope_t::bus || pci::device_of(bdf) == pci::device_of(selection.bdf);
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

// Reads the functions that the first field selects. False when the record is to be dropped.
bool select_functions(const record_t &record, selection_t *selection) {
    *selection = {scope_t::every_function, BDF_NONE};
    if (strcasecmp(record.functions, "all") == 0)
        return true;
    const heap_ptr<char> copy = copy_text(record.functions);
    if (copy == nullptr) {
        report_no_memory(record);
        return false;
    }
    return parse_functions(record, copy.get(), selection);
}

}  // namespace

void param_parse_ecrc(const char *keyword, char *value, feature_t *) {
    const heap_ptr<char> param = copy_text(value);
    record_t record = {.keyword = keyword, .param = param.get(), .functions = nullptr};
    if (param == nullptr) {
        record.param = value;  // not cut yet
        return report_no_memory(record);
    }
    char *rest = nullptr;
    record.functions = strtok_r(value, ":", &rest);
    const char *gen = record.functions != nullptr ? strtok_r(nullptr, ":", &rest) : nullptr;
    const char *chk = gen != nullptr ? strtok_r(nullptr, ":", &rest) : nullptr;
    if (chk == nullptr) {
        LOG_ERROR(0, "%s, Invalid ECRC parameter value '%s', all fields required", PARSER,
                  record.param);
        return;
    }
    selection_t selection = {};
    requests_t requests = {};
    if (!select_functions(record, &selection) || !parse_requests(record, gen, chk, &requests))
        return;
    if (selection.scope == scope_t::single)
        record_single(record, selection.bdf, requests);
    else
        record_set(record, selection, requests);
}

bool valid_ecrc_param_char(char c) {
    return is_letter(c) || is_digit(c) || (c != '\0' && std::strchr("*+-.:=", c) != nullptr);
}

}  // namespace enable_features
