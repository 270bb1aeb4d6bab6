#include "host/machine/bdf_text.h"

#include <array>
#include <cstdio>

namespace host {

std::string bdf_text(bdf_t bdf) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "%02x:%02x.%x", bdf >> 8 & 0xFF, bdf >> 3 & 0x1F,
                  bdf & 7);
    return text.data();
}

std::string domain_text(unsigned domain) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "%04x", domain);
    return text.data();
}

std::string bus_text(unsigned bus) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "%02x", bus & 0xFF);
    return text.data();
}

}  // namespace host
