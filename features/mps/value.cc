#include "features/mps/value.h"

#include <strings.h>

#include <climits>
#include <cstring>

#include "features/mps/register_access.h"
#include "module/base/value_text.h"
#include "platform/bdf.h"

namespace enable_features {

namespace {

// Returns the fault and the address that the parts give.
ep_fault_t read_parts(const char *const (&parts)[3], bdf_t *bdf) {
    const auto [bus_text, device_text, function_text] = parts;
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

mps_fields_t cut_mps_value(char *value) {
    char *rest = nullptr;
    mps_fields_t fields = {};
    fields.endpoint = strtok_r(value, ":", &rest);
    if (fields.endpoint != nullptr)
        fields.size = strtok_r(nullptr, ":", &rest);
    if (fields.size != nullptr)
        fields.further = strtok_r(nullptr, ":", &rest);
    return fields;
}

bool names_every_endpoint(const char *field) {
    return strcasecmp(field, "all") == 0;
}

ep_result_t read_endpoint(char *field) {
    char *rest = nullptr;
    ep_result_t result = {.fault = ep_fault_t::none, .bdf = BDF_NONE, .parts = {}, .further = {}};
    const char *part = strtok_r(field, ".", &rest);
    for (const char *&place : result.parts) {
        place = part;
        if (part != nullptr)
            part = strtok_r(nullptr, ".", &rest);
    }
    result.further = part;
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
