#include "features/ecrc/value.h"

#include <strings.h>

#include <iterator>

#include "module/base/value_text.h"
#include "platform/bdf.h"

namespace enable_features {

namespace {

// Reads the forms B.* and B.F.
selection_fault_t read_two_parts(unsigned bus, const char *second, selection_t *selection) {
    if (*second == '*') {
        *selection = {scope_t::device, pci::ari_bdf(bus, 0)};
        return selection_fault_t::none;
    }
    unsigned function = 0;
    if (!read_number(second, pci::HIGHEST_ARI_FUNCTION, &function))
        return selection_fault_t::ari_function;
    *selection = {scope_t::single, pci::ari_bdf(bus, function)};
    return selection_fault_t::none;
}

// Reads the forms B.D.* and B.D.F.
selection_fault_t read_three_parts(unsigned bus, const char *second, const char *third,
                                   selection_t *selection) {
    unsigned device = 0;
    if (!read_number(second, pci::HIGHEST_DEVICE, &device))
        return selection_fault_t::device;
    if (*third == '*') {
        *selection = {scope_t::device, pci::plain_bdf(bus, device, 0)};
        return selection_fault_t::none;
    }
    unsigned function = 0;
    if (!read_number(third, pci::HIGHEST_FUNCTION, &function))
        return selection_fault_t::function;
    *selection = {scope_t::single, pci::plain_bdf(bus, device, function)};
    return selection_fault_t::none;
}

selection_fault_t read_parts(const char *const *parts, selection_t *selection) {
    const char *const bus_text = parts[0];
    const char *const second = parts[1];
    const char *const third = parts[2];
    unsigned bus = 0;
    if (bus_text == nullptr || !read_number(bus_text, pci::HIGHEST_BUS, &bus))
        return selection_fault_t::bus;
    if (second == nullptr) {
        *selection = {scope_t::bus, pci::plain_bdf(bus, 0, 0)};
        return selection_fault_t::none;
    }
    if (!is_hex_digit(*second) && (*second != '*' || third != nullptr))
        return selection_fault_t::form;
    return third == nullptr ? read_two_parts(bus, second, selection)
                            : read_three_parts(bus, second, third, selection);
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
