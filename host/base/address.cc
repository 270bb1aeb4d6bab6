#include "host/base/address.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "host/base/words.h"

namespace host {
namespace {

// Reads hexadecimal digits, `most` of them at most.
std::optional<std::uint32_t> field(std::string_view digits, std::size_t most, std::uint32_t high) {
    if (digits.size() > most)
        return std::nullopt;
    const auto value = parse_hex(digits);
    return value && *value <= high ? value : std::nullopt;
}

// Characters of an address in the form of modules that a text begins with, 0 without one; `address`
// gets lspci's form. Functions above 7 are those of ARI devices.
std::size_t module_address(const std::string &text, std::array<char, 16> &address) {
    unsigned bus = 0, device = 0, function = 0;
    int end = 0;
    if (std::sscanf(text.c_str(), "B%3u:D%2u:F%3u%n", &bus, &device, &function, &end) == 3)
        std::snprintf(address.data(), address.size(), "%02x:%02x.%x", bus, device + function / 8,
                      function % 8);
    else if (std::sscanf(text.c_str(), "B%3u:D%2u:Fz%n", &bus, &device, &end) == 2)
        std::snprintf(address.data(), address.size(), "%02x:%02x.*", bus, device);
    return static_cast<std::size_t>(end);
}

}  // namespace

std::string bdf_text(bdf_t bdf) {
    std::array<char, 16> text{};
    const bdf_t plain = pci::routing_id_of(bdf);
    std::snprintf(text.data(), text.size(), "%02x:%02x.%x", pci::bus_of(plain),
                  pci::device_of(plain), pci::function_of(plain));
    return text.data();
}

std::string with_lspci_addresses(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        std::array<char, 16> address{};
        const bool may_be_one = text.front() == 'B';  // most characters are none, and are quick
        const std::size_t length =
            may_be_one ? module_address(std::string(text.substr(0, 16)), address) : 0;
        const std::size_t copied = std::max<std::size_t>(length, 1);
        result += text.substr(0, copied);
        if (length > 0)
            result += std::string(" [") + address.data() + "]";
        text.remove_prefix(copied);
    }
    return result;
}

std::optional<unsigned> bus_in(std::string_view text) {
    for (std::size_t at = text.find('B'); at != std::string_view::npos;
         at = text.find('B', at + 1)) {
        std::array<char, 16> address{};
        if (module_address(std::string(text.substr(at, 16)), address) > 0)
            return parse_hex(std::string_view(address.data(), 2));
    }
    return std::nullopt;
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

std::string format_address(unsigned domain, RoutingId id) {
    return domain == 0 ? bdf_text(id) : domain_text(domain) + ":" + bdf_text(id);
}

std::optional<Address> parse_address(std::string_view text) {
    const std::size_t dot = text.rfind('.');
    const std::vector<std::string_view> parts = split(text.substr(0, dot), ':');
    if (dot == std::string_view::npos || parts.size() < 2 || parts.size() > 3)
        return std::nullopt;
    const auto bus = field(parts[parts.size() - 2], 2, pci::HIGHEST_BUS);
    const auto device = field(parts.back(), 2, pci::HIGHEST_DEVICE);
    const auto function = field(text.substr(dot + 1), 1, pci::HIGHEST_FUNCTION);
    if (!bus || !device || !function)
        return std::nullopt;
    Address address{.domain = std::nullopt,
                    .id = pci::routing_id_of(pci::plain_bdf(*bus, *device, *function))};
    if (parts.size() == 2)
        return address;
    address.domain = field(parts.front(), 8, 0xFFFF'FFFF);
    return address.domain ? std::optional(address) : std::nullopt;
}

}  // namespace host
