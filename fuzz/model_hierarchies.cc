#include "fuzz/model_hierarchies.h"

#include <algorithm>
#include <bit>
#include <optional>

namespace host::fuzz::model {

void Hierarchies::start() {
    program_payloads();
    settle();
    for (const Wish &wish : wishes_)
        apply(wish);
}

// Follows whenever modules have done their work.
void Hierarchies::settle() {
    if (complete_)
        complete_all();
    std::erase_if(given_, [](const auto &given) { return !is_seen(*given.first); });
    recent_.clear();
    lower_what_is_above_its_port();
    each([](Node &node) { node.written = false; });
}

void Hierarchies::request(bdf_t bdf, std::uint32_t size) {
    for (Device &device : devices_)
        if (bdf == BDF_NONE || &device == device_of(bdf))
            device.request = size;
}

Hierarchies::Device *Hierarchies::device_of(bdf_t bdf) {
    for (Device &device : devices_)
        if (device.bus == pci::bus_of(bdf) && device.device == pci::device_of(bdf) &&
            device.ari == pci::is_ari(bdf))
            return &device;
    return nullptr;
}

void Hierarchies::list_devices() {
    each([&](Node &node) {
        if (manages(node.bus()) && is_endpoint(node, node.ari_form) && node.type != 9 &&
            (node.number() == 0 || (is_multi(node) && !device_of(bdf_of(node)))))
            devices_.push_back({node.bus(), node.device(), node.ari_form});
    });
}

// Returns true when the size sticks. A function takes none that it does not support, nor any above
// that of the port above it; 128 bytes are always taken.
bool Hierarchies::write(Node &node, unsigned size) {
    if (!is_seen(node) || !node.payload())
        return false;
    given_[&node] = std::bit_ceil(size);
    recent_.insert(&node);
    if (node.payload() == size)
        return true;
    const unsigned power = std::bit_ceil(size);
    node.written = true;
    if (power == 128 || (power <= node.supported().value_or(128) && power <= bound_of(node)))
        node.set_payload(power);
    return node.payload() == size;
}

bool Hierarchies::write_device(const Device &device, unsigned size) {
    Node *first = at(device.bus << 8 | device.device << 3);
    if (first && is_endpoint(*first, device.ari) && !write(*first, size))
        return false;
    if (device.ari)
        return write_ari_functions(first, size);
    bool last_sticks = true;
    for (unsigned number = 1; number < 8 && first && first->multi; ++number) {
        Node *node = at(device.bus << 8 | device.device << 3 | number);
        last_sticks = !node || write(*node, size);
    }
    return last_sticks;
}

bool Hierarchies::write_ari_functions(Node *node, unsigned size) {
    bool last_sticks = true;
    while (node && node->ari) {
        const unsigned next = node->get(node->ari + 5, 1).value_or(0);
        node = next > (node->id & 255U) ? at(node->bus() << 8 | next) : nullptr;
        if (node)
            last_sticks = write(*node, size);
    }
    return last_sticks;
}

// Sets a path from its root port down, and the device unless the bridge above it refuses.
bool Hierarchies::program(const Device &device, unsigned size) {
    const std::vector<Node *> path = path_to(device.bus);
    bool sticks = false;
    for (auto bridge = path.rbegin(); bridge != path.rend(); ++bridge)
        sticks = write(**bridge, size);
    sizes_[path.back()] = size;
    return sticks && write_device(device, size);
}

void Hierarchies::program_payloads() {
    std::erase_if(devices_, [&](const Device &device) { return path_to(device.bus).empty(); });
    for (Device &device : devices_) {
        Node *root = path_to(device.bus).back();
        const std::uint32_t limit = limit_of(*root);
        const std::uint32_t size = device.request == MAX ? limit : device.request;
        if (sizes_.contains(root) || size > limit || !is_size(size))
            device.request = 0;
        else if (!program(device, size))
            program(device, 128);
    }
    for (const Device &device : devices_)
        if (Node *root = path_to(device.bus).back(); !device.request && sizes_.contains(root))
            program(device, sizes_.at(root));
}

// Whatever has been written, and whatever has a port above that has been.
void Hierarchies::lower_what_is_above_its_port() {
    for (bool again = true; again;) {
        again = false;
        each([&](Node &node) {
            const std::set<Node *> ports = ports_above(node);
            const bool concerned =
                node.written || std::ranges::any_of(ports, [](Node *p) { return p->written; });
            const unsigned bound = bound_of(node);
            if (!concerned || node.payload().value_or(0) <= bound)
                return;
            node.set_payload(std::min(bound, node.supported().value_or(128)));
            node.written = again = true;
        });
    }
}

// Both forms of an address are names of their own; the first naming gives the place.
void Hierarchies::record(bdf_t bdf, int generation, int checking) {
    auto wish = std::ranges::find(wishes_, bdf, &Wish::bdf);
    if (wish == wishes_.end()) {
        const Node *node = at(bdf);
        const unsigned aer = node ? node->aer : 0;
        wish = wishes_.insert(wish, {.bdf = bdf, .aer = aer});
        wish->capable = aer ? node->get(aer + 0x18, 4).value_or(0) : 0;
    }
    wish->generation = generation ? generation : wish->generation;
    wish->checking = checking ? checking : wish->checking;
}

// A function that has come to an address instead of another is set where it has the capability at
// the same place.
void Hierarchies::apply(const Wish &wish) {
    Node *node = at(wish.bdf);
    if (!node || !node->aer_places.contains(wish.aer) || !node->get(wish.aer + 0x18, 4))
        return;
    const auto turn = [&](int setting, unsigned capable, unsigned byte, unsigned enable) {
        std::uint8_t &bits = node->bytes[wish.aer + 0x18 + byte];
        if (setting && (wish.capable & node->bytes[wish.aer + 0x18] & capable))
            bits = static_cast<std::uint8_t>(setting > 0 ? bits | enable : bits & ~enable);
    };
    turn(wish.generation, 0x20, 0, 0x40);
    turn(wish.checking, 0x80, 1, 0x01);
}

}  // namespace host::fuzz::model
