// Reads the values of MPS lines, ENDPOINT:SIZE. These functions only read text: they log nothing
// and ask no host, so that a program that checks feature files reads a value as the module does.
#pragma once

#include <cstdint>

#include "platform/types.h"

namespace enable_features {

constexpr std::uint32_t MPS_LOWEST = 128;
constexpr std::uint32_t MPS_HIGHEST = 4096;
constexpr std::uint32_t MPS_DEFAULT = 128;      // every component supports it
constexpr std::uint32_t MPS_MAX = 0xFFFF'FFFF;  // in requests: the largest that the path allows

// Tests whether a size may be requested. Multiples of 128 between the powers of two pass: a write
// rounds them up, then reports that they did not take.
constexpr bool is_a_supported_mps(std::uint32_t size) {
    return size >= MPS_LOWEST && size <= MPS_HIGHEST && size % MPS_LOWEST == 0;
}

// Returns true for the bytes that a value may hold: ASCII letters and digits, "+", "-", "." and
// ":".
bool valid_mps_param_char(char c);

// The fields, cut out of the value. Separators run together, so no field is empty.
struct mps_fields_t {
    char *endpoint;       // null when there is none
    const char *size;     // null when there is none
    const char *further;  // the first field that is ignored, or null
};

enum class ep_fault_t { none, bus, device, ari_function, function };

struct ep_result_t {
    ep_fault_t fault;
    bdf_t bdf;            // BDF_NONE, which is no endpoint, when the device is missing
    char *parts[3];       // as written, cut out of the field; null when missing
    const char *further;  // the first part that is ignored, or null
};

// Cuts a value up in place.
mps_fields_t cut_mps_value(char *value);

// Returns true for "all", in any letter case.
bool names_every_endpoint(const char *field);

// Reads the endpoint field, cutting it up in place: BUS.DEVICE.FUNCTION or BUS.FUNCTION (an ARI
// function). Empty parts do not count.
ep_result_t read_endpoint(char *field);

// Reads "max", in any letter case, as MPS_MAX, or a number, of which the low 32 bits are the
// payload size. Returns false when that size may not be requested.
bool read_payload_size(const char *field, std::uint32_t *size);

}  // namespace enable_features
