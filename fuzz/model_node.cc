#include "fuzz/model_node.h"

#include <set>

#include "platform/capability.h"

namespace host::fuzz::model {
namespace {

constexpr std::uint32_t ALL_ONES = 0xFFFF'FFFF;

// One capability list.
struct List {
    unsigned lowest, id_mask, next_shift, pointer_mask;
};
constexpr List STANDARD = {0x40, 0xFF, 8, 0xFC};
constexpr List EXTENDED = {0x100, 0xFFFF, 20, 0xFFC};

std::vector<unsigned> find_capabilities(const Node &node, unsigned at, const List &list,
                                        unsigned wanted) {
    std::vector<unsigned> found;
    std::set<unsigned> seen;
    while (at >= list.lowest && seen.insert(at).second) {
        const auto header = node.get(at, 4);
        const bool ends = !header ||
                          (&list == &EXTENDED && (*header == 0 || *header == ALL_ONES)) ||
                          (&list == &STANDARD && (*header & 0xFF) == 0xFF);
        if (ends)
            break;
        if ((*header & list.id_mask) == wanted)
            found.push_back(at);
        at = *header >> list.next_shift & list.pointer_mask;
    }
    return found;
}

unsigned find_capability(const Node &node, unsigned at, const List &list, unsigned wanted) {
    const auto found = find_capabilities(node, at, list, wanted);
    return found.empty() ? 0 : found.front();
}

}  // namespace

Node read_node(RoutingId id, const std::vector<std::uint8_t> &bytes) {
    Node node{.id = id, .bytes = bytes};
    const auto ids = node.get(0, 4);
    node.answers = ids && (*ids & 0xFFFF) != 0xFFFF;
    node.layout = node.get_or_0(0x0E, 1) & 0x7F;
    node.multi = (node.get_or_0(0x0E, 1) & 0x80) != 0;
    node.class_code = node.get_or_0(8, 4) >> 8;
    node.bridge = node.layout == 1 || node.layout == 2;
    if (node.bridge) {
        node.secondary = node.get_or_0(0x19, 1);
        node.subordinate = node.get_or_0(0x1A, 1);
    }
    const bool has_list = (node.get_or_0(6, 2) & 0x10) != 0;
    const unsigned start = has_list ? node.get_or_0(node.layout == 2 ? 0x14 : 0x34, 1) & 0xFC : 0;
    node.msi = find_capability(node, start, STANDARD, CAPID_MSI);
    node.msix = find_capability(node, start, STANDARD, CAPID_MSIX);
    node.pcie = find_capability(node, start, STANDARD, CAPID_PCIE);
    if (!node.pcie)
        return node;
    node.type = node.get_or_0(node.pcie + 2, 2) >> 4 & 0xF;
    node.aer = find_capability(node, 0x100, EXTENDED, EXT_CAPID_AER);
    const auto places = find_capabilities(node, 0x100, EXTENDED, EXT_CAPID_AER);
    node.aer_places.insert(places.begin(), places.end());
    node.ari = find_capability(node, 0x100, EXTENDED, EXT_CAPID_ARI);
    node.sriov = find_capability(node, 0x100, EXTENDED, EXT_CAPID_SRIOV);
    return node;
}

}  // namespace host::fuzz::model
