// Addresses of functions, and the write handle that is made of one: both are put together and taken
// apart here only.
#pragma once

#include <cstdint>

// Address of a function (bus, device, function).
//   plain form  bits 15:8 bus, 7:3 device (0-31), 2:0 function (0-7)
//   ARI form    bit 16 set, bits 15:8 bus, 7:0 ARI function number (0-255); the device counts as 0
// Both forms of one function share bits 15:0, its routing ID. Values above 0x1FFFF address nothing.
using bdf_t = std::uint32_t;

constexpr bdf_t BDF_ARI_FLAG = 0x0001'0000;
constexpr bdf_t BDF_ROUTING_ID = 0x0000'FFFF;
constexpr bdf_t BDF_HIGHEST = 0x0001'FFFF;
constexpr bdf_t BDF_NONE = 0xFFFF'FFFF;  // no function; in requests, all functions

// Write handle: names the function that a write operation changes, passed by value. A module makes
// it from the function's bdf_t:
//   bits  7:0   WRITE_HANDLE_TAG
//   bit   15    the ARI flag of the address (bits 14:8 are zero)
//   bits 31:16  bits 15:0 of the address, exclusive or WRITE_HANDLE_BDF_MASK
//   bits 47:32  the ARI flag as 0 or 1, exclusive or WRITE_HANDLE_ARI_MASK
//   bits 63:48  zero
// An operation refuses a handle that is not of this form, or that names another function than the
// object it is called on, with PCI_ERR_INVALID.
using bdf_token = std::uint64_t;

constexpr std::uint8_t WRITE_HANDLE_TAG = 0x9D;
constexpr std::uint16_t WRITE_HANDLE_BDF_MASK = 0x5A3C;
constexpr std::uint16_t WRITE_HANDLE_ARI_MASK = 0xC3A5;

namespace pci {

// The highest numbers in an address.
constexpr unsigned HIGHEST_BUS = 255;
constexpr unsigned HIGHEST_DEVICE = 31;
constexpr unsigned HIGHEST_FUNCTION = 7;
constexpr unsigned HIGHEST_ARI_FUNCTION = 255;

constexpr bdf_t plain_bdf(unsigned bus, unsigned device, unsigned function) {
    return bus << 8 | device << 3 | function;
}

constexpr bdf_t ari_bdf(unsigned bus, unsigned function) {
    return BDF_ARI_FLAG | bus << 8 | function;
}

constexpr bool is_ari(bdf_t bdf) {
    return (bdf & BDF_ARI_FLAG) != 0;
}

// Returns bits 15:0, which both forms of one function's address have in common.
constexpr std::uint16_t routing_id_of(bdf_t bdf) {
    return static_cast<std::uint16_t>(bdf & BDF_ROUTING_ID);
}

constexpr unsigned bus_of(bdf_t bdf) {
    return bdf >> 8 & 0xFF;
}

// Returns the device number, 0 to 31; an ARI function counts as device 0.
constexpr unsigned device_of(bdf_t bdf) {
    return is_ari(bdf) ? 0 : bdf >> 3 & 0x1F;
}

// Returns the function number: 0 to 7, or 0 to 255 for the ARI form.
constexpr unsigned function_of(bdf_t bdf) {
    return is_ari(bdf) ? bdf & 0xFF : bdf & 0x07;
}

// Returns function 0 of the same device, in the same form. An ARI device has the whole bus.
constexpr bdf_t function_0_of(bdf_t bdf) {
    return is_ari(bdf) ? ari_bdf(bus_of(bdf), 0) : plain_bdf(bus_of(bdf), device_of(bdf), 0);
}

// Returns the write handle of `bdf`.
constexpr bdf_token token_of(bdf_t bdf) {
    const bdf_token ari = is_ari(bdf) ? 1 : 0;
    const bdf_token routing_id = routing_id_of(bdf);
    return WRITE_HANDLE_TAG | ari << 15 | (routing_id ^ WRITE_HANDLE_BDF_MASK) << 16 |
           (ari ^ WRITE_HANDLE_ARI_MASK) << 32;
}

// Returns the address that a handle was made of; BDF_NONE when the handle is not of the form above.
constexpr bdf_t bdf_of(bdf_token token) {
    const bdf_token routing_id = (token >> 16 & 0xFFFF) ^ WRITE_HANDLE_BDF_MASK;
    const bdf_token ari = (token >> 32 & 0xFFFF) ^ WRITE_HANDLE_ARI_MASK;
    const auto bdf = static_cast<bdf_t>(routing_id | (ari != 0 ? BDF_ARI_FLAG : 0));
    return token == token_of(bdf) ? bdf : BDF_NONE;
}

// Returns true when the handle names the function at `bdf`, in either form.
constexpr bool names_function(bdf_token token, bdf_t bdf) {
    return bdf_of(token) != BDF_NONE && routing_id_of(bdf_of(token)) == routing_id_of(bdf);
}

}  // namespace pci
