#include "feature_file/ecrc_value.h"

#include <strings.h>

#include <cstring>
#include <iterator>

#include "feature_file/value_text.h"
#include "platform/bdf.h"

namespace enable_features {

namespace {

// Reads the last part of a selection in `device`, whose function 0 has that address: "*" selects
// the device, a number one function. Returns false when the number is above `highest` or is none.
bool read_last_part(const char *part, unsigned highest, bdf_t device, selection_t *selection) {
    if (*part == '*') {
        *selection = {scope_t::device, device};
        return true;
    }
    unsigned function = 0;
    if (!read_number(part, highest, &function))
        return false;
    *selection = {scope_t::single, device | function};
    return true;
}

selection_fault_t read_parts(const char *const *parts, selection_t *selection) {
    const char *const bus_text = parts[0];
    const char *const second = parts[1];
    const char *const third = parts[2];
    unsigned bus = 0;
    unsigned device = 0;
    if (bus_text == nullptr || !read_number(bus_text, pci::HIGHEST_BUS, &bus))
        return selection_fault_t::bus;
    if (second == nullptr) {
        *selection = {scope_t::bus, pci::plain_bdf(bus, 0, 0)};
        return selection_fault_t::none;
    }
    if (!is_hex_digit(*second) && (*second != '*' || third != nullptr))
        return selection_fault_t::form;
    if (third == nullptr)
        return read_last_part(second, pci::HIGHEST_ARI_FUNCTION, pci::ari_bdf(bus, 0), selection)
                   ? selection_fault_t::none
                   : selection_fault_t::ari_function;
    if (!read_number(second, pci::HIGHEST_DEVICE, &device))
        return selection_fault_t::device;
    return read_last_part(third, pci::HIGHEST_FUNCTION, pci::plain_bdf(bus, device, 0), selection)
               ? selection_fault_t::none
               : selection_fault_t::function;
}

bool read_setting(const char *text, ecrc_setting *setting) {
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

}  // namespace

bool valid_ecrc_param_char(char c) {
    return is_letter(c) || is_digit(c) || (c != '\0' && std::strchr("*+-.:=", c) != nullptr);
}

ecrc_fields_t cut_ecrc_value(char *value) {
    char *fields[3] = {};
    const char *const further = cut_pieces(value, ":", fields, std::size(fields));
    return {.functions = fields[0], .gen = fields[1], .chk = fields[2], .further = further};
}

bool names_every_function(const char *field) {
    return strcasecmp(field, "all") == 0;
}

selection_result_t read_selection(char *field) {
    selection_result_t result = {.fault = selection_fault_t::none,
                                 .selection = {scope_t::every_function, BDF_NONE},
                                 .parts = {},
                                 .further = nullptr};
    result.further = cut_pieces(field, ".", result.parts, std::size(result.parts));
    result.fault = read_parts(result.parts, &result.selection);
    return result;
}

bool is_selected(const selection_t &selection, bdf_t bdf) {
    if (selection.scope == scope_t::every_function)
        return true;
    if (pci::bus_of(bdf) != pci::bus_of(selection.bdf))
        return false;
    return selection.scope == scope_t::bus || pci::device_of(bdf) == pci::device_of(selection.bdf);
}

bool read_requests(const char *gen, const char *chk, requests_t *requests) {
    return read_setting(gen, &requests->gen) && read_setting(chk, &requests->chk);
}

}  // namespace enable_features
