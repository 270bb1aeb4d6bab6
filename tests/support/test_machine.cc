#include "tests/support/test_machine.h"

#include <algorithm>
#include <iterator>
#include <sstream>

namespace host::tests {

using Bytes = std::vector<std::uint8_t>;

static void put(Bytes &bytes, unsigned offset, unsigned width, std::uint32_t value) {
    for (; width > 0 && offset < bytes.size(); --width, ++offset, value >>= 8)
        bytes[offset] = static_cast<std::uint8_t>(value);
}

static void put_header(Bytes &bytes, const FunctionSpec &spec, bool multi_function) {
    const bool bridge = spec.secondary != 0;
    put(bytes, pci::VENDOR_ID, 2, 0x1234);
    put(bytes, pci::STATUS, 2,
        (spec.port ? pci::STATUS_CAPABILITIES_LIST : 0U) |
            (spec.fast_b2b ? pci::STATUS_FAST_B2B_CAPABLE : 0U));
    put(bytes, pci::CLASS_REVISION, 4, spec.class_code << 8);
    put(bytes, pci::HEADER_TYPE, 1,
        (bridge ? pci::HEADER_LAYOUT_BRIDGE : 0U) |
            (multi_function ? pci::HEADER_TYPE_MULTI_FUNCTION : 0));
    if (bridge) {
        put(bytes, pci::SECONDARY_BUS_NUMBER, 1, spec.secondary);
        put(bytes, pci::SUBORDINATE_BUS_NUMBER, 1, spec.subordinate);
    }
}

static void put_pcie(Bytes &bytes, const FunctionSpec &spec) {
    put(bytes, pci::CAPABILITIES_POINTER, 1, PCIE_AT);
    put(bytes, PCIE_AT, 2, CAPID_PCIE);
    put(bytes, PCIE_AT + pci::PCIE_CAPS, 2, 2U | static_cast<unsigned>(*spec.port) << 4);
    put(bytes, PCIE_AT + pci::DEVCAP, 4, spec.payload_cap);
    put(bytes, DEVCTL_AT, 2, spec.payload_set << 5);
    put(bytes, PCIE_AT + pci::LINKCAP, 4, spec.link_cap);
    put(bytes, PCIE_AT + pci::DEVCTL2, 2, spec.ari_forwarding ? pci::DEVCTL2_ARI_FORWARDING : 0U);
}

// The AER capability, if there is one, comes first and links to ARI.
static void put_extended(Bytes &bytes, const FunctionSpec &spec) {
    const unsigned ari_offset = spec.aer ? pci::EXT_CAPS + 0x48 : pci::EXT_CAPS;
    if (spec.aer) {
        put(bytes, pci::EXT_CAPS, 4,
            EXT_CAPID_AER | 2U << 16 | (spec.next_ari ? ari_offset : 0) << 20);
        put(bytes, AER_CONTROL_AT, 4, *spec.aer);
    }
    if (spec.next_ari) {
        put(bytes, ari_offset, 4, EXT_CAPID_ARI | 1U << 16);
        put(bytes, ari_offset + pci::ARI_CAPABILITY, 2, unsigned{*spec.next_ari} << 8);
    }
}

Bytes config_bytes(const FunctionSpec &spec, bool multi_function) {
    Bytes bytes(spec.size);
    put_header(bytes, spec, multi_function);
    if (spec.port)
        put_pcie(bytes, spec);
    put_extended(bytes, spec);
    for (const auto &[offset, value] : spec.dwords)
        put(bytes, offset, 4, value);
    return bytes;
}

Words words(const std::string &text) {
    std::istringstream in(text);
    return {std::istream_iterator<std::string>(in), {}};
}

std::vector<FunctionSpec> functions(const std::string &text) {
    std::vector<FunctionSpec> list;
    for (const std::string &word : words(text)) {
        FunctionSpec spec = {.id = 0, .link_cap = 0xC00, .fast_b2b = true};
        unsigned bus = 0, device = 0, function = 0;
        char type = 0;
        std::sscanf(word.c_str(), "%u.%u.%u", &bus, &device, &function);
        std::sscanf(word.c_str() + word.find(':'), ":%c>%hhu-%hhu=%o,%x", &type, &spec.secondary,
                    &spec.subordinate, &spec.payload_cap, &spec.link_cap);
        spec.id = at(bus, device, function);
        spec.class_code = spec.secondary != 0 ? PCI_BRIDGE_CLASS : spec.class_code;
        spec.port = type == '-' ? std::nullopt : std::optional<std::uint8_t>(type & 0xF);
        list.push_back(spec);
    }
    return list;
}

TestMachine::TestMachine(const std::vector<FunctionSpec> &functions) {
    for (const FunctionSpec &spec : functions) {
        const bool multi_function = std::ranges::any_of(functions, [&](const FunctionSpec &other) {
            return other.id != spec.id && (other.id | 7) == (spec.id | 7);
        });
        image.add(spec.id, "", config_bytes(spec, multi_function));
    }
    machine.emplace(image, [this](const std::string &line) { warnings += line + '\n'; });
}

std::uint32_t TestMachine::get(RoutingId id, unsigned offset, unsigned width) {
    std::uint32_t value = 0xDEADBEEF;
    image.read(id, offset, width, value);
    return value;
}

}  // namespace host::tests
