#include "host/base/checksum.h"

namespace host {
namespace {

std::uint32_t with_byte(std::uint32_t crc, std::uint32_t byte) {
    constexpr std::uint32_t POLYNOMIAL = 0x04C11DB7;
    constexpr std::uint32_t HIGHEST_BIT = 0x80000000;
    crc ^= byte << 24U;
    for (int bit = 0; bit < 8; ++bit)
        crc = (crc << 1U) ^ ((crc & HIGHEST_BIT) != 0 ? POLYNOMIAL : 0);
    return crc;
}

}  // namespace

// Behind the content follows its length, lowest byte first and without leading zeros.
std::uint32_t checksum(std::string_view content) {
    std::uint32_t crc = 0;
    for (const char byte : content)
        crc = with_byte(crc, static_cast<unsigned char>(byte));
    for (std::size_t length = content.size(); length != 0; length >>= 8U)
        crc = with_byte(crc, length & 0xFF);
    return ~crc;
}

}  // namespace host
