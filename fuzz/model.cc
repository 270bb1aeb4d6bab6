#include "fuzz/model.h"

#include <algorithm>
#include <bit>
#include <cctype>
#include <optional>
#include <string>
#include <utility>

#include "fuzz/model_machine.h"
#include "fuzz/model_text.h"

namespace host::fuzz {
namespace {

using namespace model;

// A machine, and what feature files ask for.
class Model : public model::Machine {
public:
    Model(const Spaces &before, const std::vector<bool> &managed) : Machine(before, managed) {
        list_devices();
    }

    void take_line(const std::string &keyword, const std::string &value) {
        const std::string name = lower(keyword);
        if (name == "mps")
            take_mps(cut(value, ':'));
        if (name == "ecrc")
            take_ecrc(cut(value, ':'));
    }

    void start() {
        program_payloads();
        lower_what_is_above_its_port();
        for (const Wish &wish : wishes_)
            apply(wish);
    }

private:
    struct Device {
        unsigned bus, device;  // ARI devices: device 0
        bool ari;
        std::uint32_t request = 0;
    };
    struct Wish {
        bdf_t bdf;  // as the line names it
        int generation = 0, checking = 0;
    };

    Device *device_of(bdf_t bdf) {
        for (Device &device : devices_)
            if (device.bus == pci::bus_of(bdf) && device.device == pci::device_of(bdf) &&
                device.ari == pci::is_ari(bdf))
                return &device;
        return nullptr;
    }

    void list_devices() {
        each([&](Node &node) {
            if (manages(node.bus()) && is_endpoint(node, node.ari_form) && node.type != 9 &&
                (node.number() == 0 || (is_multi(node) && !device_of(bdf_of(node)))))
                devices_.push_back({node.bus(), node.device(), node.ari_form});
        });
    }

    // Whether the size sticks. A function takes none that it does not support, nor any above that
    // of the port above it; 128 bytes are always taken.
    bool write(Node &node, unsigned size) {
        if (!node.payload())
            return false;
        if (node.payload() == size)
            return true;
        const unsigned power = std::bit_ceil(size);
        node.written = true;
        if (power == 128 || (power <= node.supported().value_or(128) && power <= bound_of(node)))
            node.set_payload(power);
        return node.payload() == size;
    }

    bool write_device(const Device &device, unsigned size) {
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

    bool write_ari_functions(Node *node, unsigned size) {
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
    bool program(const Device &device, unsigned size) {
        const std::vector<Node *> path = path_to(device.bus);
        bool sticks = false;
        for (auto bridge = path.rbegin(); bridge != path.rend(); ++bridge)
            sticks = write(**bridge, size);
        sizes_[path.back()] = size;
        return sticks && write_device(device, size);
    }

    static bool is_size(std::uint32_t size) {
        return size >= 128 && size <= LARGEST && size % 128 == 0;
    }

    void program_payloads() {
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
    void lower_what_is_above_its_port() {
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

    // "all", or B.D.F, or B.F for an ARI function.
    void take_mps(const std::vector<std::string> &fields) {
        if (fields.size() < 2)
            return;
        const bool all = lower(fields[0]) == "all";
        const auto bdf = all ? std::optional(BDF_NONE) : endpoint_in(cut(fields[0], '.'));
        auto size = number_in(fields[1], ~0UL);
        if (lower(fields[1]) == "max")
            size = MAX;
        else if (size)
            size = is_size(static_cast<std::uint32_t>(*size)) ? *size & MAX : 0;
        if (!bdf || !size.value_or(0))
            return;
        for (Device &device : devices_)
            if (all || &device == device_of(*bdf))
                device.request = static_cast<std::uint32_t>(*size);
    }

    std::optional<bdf_t> endpoint_in(const std::vector<std::string> &parts) {
        if (parts.size() < 2)
            return std::nullopt;
        const bool ari = parts.size() == 2;
        const auto bus = number_in(parts[0], 255), second = number_in(parts[1], ari ? 255 : 31);
        const auto third = ari ? std::optional(0UL) : number_in(parts[2], 7);
        if (!bus || !second || !third)
            return std::nullopt;
        const bdf_t bdf = static_cast<bdf_t>(ari ? BDF_ARI_FLAG | *bus << 8 | *second
                                                 : *bus << 8 | *second << 3 | *third);
        const Node *node = at(bdf);
        return node && is_endpoint(*node, ari) ? std::optional(bdf) : std::nullopt;
    }

    static std::optional<int> setting(char c) {
        constexpr std::string_view SETTINGS = "-=+";
        const auto at = SETTINGS.find(c);
        return at == SETTINGS.npos ? std::nullopt : std::optional(static_cast<int>(at) - 1);
    }

    void take_ecrc(const std::vector<std::string> &fields) {
        if (fields.size() < 3)
            return;
        const auto generation = setting(fields[1][0]), checking = setting(fields[2][0]);
        if (!generation || !checking || (!*generation && !*checking))
            return;
        if (lower(fields[0]) == "all")
            return record_all([](Node &) { return true; }, *generation, *checking);
        std::vector<std::string> parts = cut(fields[0], '.');
        parts.resize(3);
        const auto bus = number_in(parts[0], 255);
        if (!bus)
            return;
        if (parts[1].empty())
            return record_all([&](Node &node) { return node.bus() == *bus; }, *generation,
                              *checking);
        const auto device_selects = [&](unsigned device) {
            record_all([&](Node &node) { return node.bus() == *bus && node.device() == device; },
                       *generation, *checking);
        };
        if (parts[1][0] == '*')
            return parts[2].empty() ? device_selects(0) : void();
        const bool ari = parts[2].empty();
        const auto second = std::isxdigit(static_cast<unsigned char>(parts[1][0]))
                                ? number_in(parts[1], ari ? 255 : 31)
                                : std::nullopt;
        if (!second)
            return;
        if (!ari && parts[2][0] == '*')
            return device_selects(static_cast<unsigned>(*second));
        const auto third = ari ? std::optional(0UL) : number_in(parts[2], 7);
        if (third && manages(static_cast<unsigned>(*bus)))
            record(static_cast<bdf_t>(ari ? BDF_ARI_FLAG | *bus << 8 | *second
                                          : *bus << 8 | *second << 3 | *third),
                   *generation, *checking);
    }

    void record_all(const std::function<bool(Node &)> &selects, int generation, int checking) {
        each([&](Node &node) {
            if (manages(node.bus()) && selects(node))
                record(bdf_of(node), generation, checking);
        });
    }

    // Both forms of an address are names of their own; the first naming gives the place.
    void record(bdf_t bdf, int generation, int checking) {
        auto wish = std::ranges::find(wishes_, bdf, &Wish::bdf);
        if (wish == wishes_.end())
            wish = wishes_.insert(wish, {.bdf = bdf});
        wish->generation = generation ? generation : wish->generation;
        wish->checking = checking ? checking : wish->checking;
    }

    void apply(const Wish &wish) {
        Node *node = at(wish.bdf);
        if (!node || !node->aer || !node->get(node->aer + 0x18, 4))
            return;
        const auto turn = [&](int setting, unsigned capable, unsigned byte, unsigned enable) {
            std::uint8_t &bits = node->bytes[node->aer + 0x18 + byte];
            if (setting && (node->bytes[node->aer + 0x18] & capable))
                bits = static_cast<std::uint8_t>(setting > 0 ? bits | enable : bits & ~enable);
        };
        turn(wish.generation, 0x20, 0, 0x40);
        turn(wish.checking, 0x80, 1, 0x01);
    }

    std::vector<Device> devices_;
    std::map<Node *, unsigned> sizes_;  // what has been programmed, by root port
    std::vector<Wish> wishes_;
};

// Reads KEYWORD=VALUE. A value ends at the first character that its keyword does not take.
void take_line(Model &model, std::string line) {
    const auto is_letter_or_digit = [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
    };
    const auto word = [&](std::string_view text, std::string_view others) {
        while (!text.empty() && (text[0] == ' ' || text[0] == '\t'))
            text.remove_prefix(1);
        std::size_t size = 0;
        while (size < text.size() &&
               (is_letter_or_digit(text[size]) || others.find(text[size]) != others.npos))
            ++size;
        return std::string(text.substr(0, size));
    };
    if (line.starts_with("\xEF\xBB\xBF"))
        line.erase(0, 3);
    const std::size_t equals = line.find('=');
    if (equals == line.npos || line.find_first_not_of(" \t") == line.find('#'))
        return;
    const std::string keyword = word(std::string_view(line).substr(0, equals), "_-.");
    const bool is_ecrc = lower(keyword) == "ecrc";
    const std::string value =
        word(std::string_view(line).substr(equals + 1), is_ecrc ? "*+-.:=" : "+-.:");
    model.take_line(keyword, value);
}

}  // namespace

Spaces expected_spaces(const Spaces &before, const std::vector<bool> &managed,
                       std::string_view features) {
    Model model(before, managed);
    for (const std::string &line : cut(std::string(features), '\n'))
        take_line(model, line);
    model.start();
    return model.spaces();
}

}  // namespace host::fuzz
