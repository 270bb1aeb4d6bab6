#include "feature_file/mps_value.h"

#include <strings.h>

#include <climits>
#include <iterator>

#include "feature_file/value_text.h"
#include "platform/bdf.h"

namespace enable_features {

namespace {

// Returns the fault and the address that the parts give.
ep_fault_t read_parts(const char *const *parts, bdf_t *bdf) {
    const char *const bus_text = parts[0];
    const char *const device_text = parts[1];
    const char *const function_text = parts[2];
    unsigned bus = 0;
    unsigned device = 0;
    unsigned function = 0;
    if (bus_text == nullptr || !read_number(bus_text, pci::HIGHEST_BUS, &bus))
        return ep_fault_t::bus;
    if (device_text == nullptr)
        return ep_fault_t::none;
    if (function_text == nullptr) {
        if (!read_number(device_text, pci::HIGHEST_ARI_FUNCTION, &function))
            return ep_fault_t::ari_function;
        *bdf = pci::ari_bdf(bus, function);
        return ep_fault_t::none;
    }
    if (!read_number(device_text, pci::HIGHEST_DEVICE, &device))
        return ep_fault_t::device;
    if (!read_number(function_text, pci::HIGHEST_FUNCTION, &function))
        return ep_fault_t::function;
    *bdf = pci::plain_bdf(bus, device, function);
    return ep_fault_t::none;
}

}  // namespace

bool valid_mps_param_char(char c) {
    return valid_param_val_char(c);
}

mps_fields_t cut_mps_value(char *value) {
    char *fields[2] = {};
    const char *const further = cut_pieces(value, ":", fields, std::size(fields));
    return {.endpoint = fields[0], .size = fields[1], .further = further};
}

bool names_every_endpoint(const char *field) {
    return strcasecmp(field, "all") == 0;
}

ep_result_t read_endpoint(char *field) {
    ep_result_t result = {.fault = ep_fault_t::none, .bdf = BDF_NONE, .parts = {}, .further = {}};
    result.further = cut_pieces(field, ".", result.parts, std::size(result.parts));
    result.fault = read_parts(result.parts, &result.bdf);
    return result;
}

bool read_payload_size(const char *field, std::uint32_t *size) {
    if (strcasecmp(field, "max") == 0) {
        *size = MPS_MAX;
        return true;
    }
    return read_number(field, ULONG_MAX, size) && is_a_supported_mps(*size);
}

}  // namespace enable_features
