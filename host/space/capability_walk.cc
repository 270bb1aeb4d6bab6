#include "host/space/capability_walk.h"
#include "platform/pci_regs.h"

#include <algorithm>
#include <bitset>

namespace host {

namespace {

// The low two bits of a pointer are reserved and ignored.
constexpr unsigned POINTER_BITS = 0xFC;
constexpr unsigned EXT_POINTER_BITS = 0xFFC;

// Returns the first pointer of the list; 0 for a function without one.
unsigned list_start(const ReadDword &read) {
    const auto status = read_word(read, pci::STATUS);
    const auto type = read_word(read, pci::HEADER_TYPE);
    if (!status || !type || !(*status & pci::STATUS_CAPABILITIES_LIST))
        return 0;
    const bool cardbus = (*type & pci::HEADER_TYPE_LAYOUT) == pci::HEADER_LAYOUT_CARDBUS;
    const auto pointer =
        read(cardbus ? pci::CARDBUS_CAPABILITIES_POINTER : pci::CAPABILITIES_POINTER);
    return pointer.value_or(0) & POINTER_BITS;
}

}  // namespace

std::optional<std::uint16_t> read_word(const ReadDword &read, unsigned offset) {
    const auto dword = read(offset & ~3u);
    if (!dword)
        return std::nullopt;
    return static_cast<std::uint16_t>(*dword >> 8 * (offset & 3u));
}

std::vector<CapPosition> walk_capabilities(const ReadDword &read) {
    std::vector<CapPosition> found;
    std::bitset<pci::CONFIG_SIZE> seen;
    unsigned offset = list_start(read);
    while (offset >= pci::HEADER_SIZE && !seen[offset]) {
        seen.set(offset);
        const auto header = read(offset);
        if (!header)
            break;
        const auto id = static_cast<std::uint16_t>(pci::get(*header, pci::CAP_HEADER_ID));
        if (id == 0xFF)  // all ones: no function answers here
            break;
        found.push_back({id, static_cast<std::uint16_t>(offset)});
        offset = pci::get(*header, pci::CAP_HEADER_NEXT_POINTER) & POINTER_BITS;
    }
    return found;
}

std::vector<CapPosition> walk_ext_capabilities(const ReadDword &read) {
    std::vector<CapPosition> found;
    std::bitset<pci::EXT_CONFIG_SIZE> seen;
    unsigned offset = pci::EXT_CAPS;
    while (offset >= pci::EXT_CAPS && !seen[offset]) {
        seen.set(offset);
        const auto header = read(offset);
        if (!header || *header == 0 || *header == 0xFFFF'FFFF)
            break;
        const auto id = static_cast<std::uint16_t>(pci::get(*header, pci::EXT_CAP_HEADER_ID));
        found.push_back({id, static_cast<std::uint16_t>(offset)});
        offset = pci::get(*header, pci::EXT_CAP_HEADER_NEXT_OFFSET) & EXT_POINTER_BITS;
    }
    return found;
}

int index_of_capability(const std::vector<CapPosition> &list, std::uint16_t id) {
    const auto has_id = [id](const CapPosition &cap) { return cap.id == id; };
    const auto cap = std::find_if(list.begin(), list.end(), has_id);
    return cap == list.end() ? -1 : static_cast<int>(cap - list.begin());
}

std::optional<std::uint16_t> first_capability(const std::vector<CapPosition> &list,
                                              std::uint16_t id) {
    const int index = index_of_capability(list, id);
    if (index < 0)
        return std::nullopt;
    return list[static_cast<std::size_t>(index)].offset;
}

}  // namespace host
