// Tells the contents of files apart.
#pragma once

#include <cstdint>
#include <string_view>

namespace host {

// Returns what cksum(1) prints of a file with this content: the 32-bit CRC of POSIX. Different
// contents may have the same one, and are easily made to.
std::uint32_t checksum(std::string_view content);

}  // namespace host
