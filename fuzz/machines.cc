#include "fuzz/machines.h"

#include <algorithm>
#include <array>
#include <set>

#include "host/base/address.h"
#include "host/space/dump.h"
#include "platform/capability.h"
#include "platform/pci_regs.h"
#include "tests/support/faults.h"

namespace host::fuzz {
namespace {

using tests::FunctionSpec;

// More functions would show nothing new and take more time.
constexpr std::size_t MOST_FUNCTIONS = 24;
constexpr std::size_t MOST_EVENTS = 16;

// Flags of a function's row.
constexpr unsigned AER = 1;
constexpr unsigned ARI = 2;             // an ARI capability; of bridges: ARI forwarding
constexpr unsigned FAST_B2B = 4;        // capable of fast back-to-back transfers
constexpr unsigned MSI = 8;             // behind the PCI Express capability: MSI, then MSI-X
constexpr unsigned HEADER_ONLY = 0x10;  // 64 bytes
constexpr unsigned NOT_EXTENDED = 0x20;
constexpr unsigned COLLECTOR = 0x40;  // class of an event collector, with its capability
constexpr unsigned ODD_SIZE = 0x80;

constexpr unsigned MSI_AT = 0x80;
constexpr unsigned MSIX_AT = 0xA0;
constexpr unsigned RCEC_AT = 0x200;

void add_interrupts(FunctionSpec &spec) {
    const auto add = [&](unsigned at, std::uint8_t id, unsigned next, unsigned second_word) {
        constexpr std::uint32_t SECOND_WORD = 0xFFFF'0000;
        spec.dwords.emplace_back(at, pci::in_field(SECOND_WORD, second_word) |
                                         pci::in_field(pci::CAP_HEADER_NEXT_POINTER, next) | id);
    };
    add(tests::PCIE_AT, CAPID_PCIE, MSI_AT,
        2U | pci::in_field(pci::PCIE_CAPS_DEVICE_PORT_TYPE, spec.port.value_or(0)));
    add(MSI_AT, CAPID_MSI, MSIX_AT,
        pci::MSI_CONTROL_ENABLE | pci::MSI_CONTROL_64_BIT | pci::MSI_CONTROL_PER_VECTOR_MASKING);
    add(MSIX_AT, CAPID_MSIX, 0, pci::MSIX_CONTROL_ENABLE | 3U);
}

void add_collector(FunctionSpec &spec) {
    spec.class_code = EVENT_COLLECTOR_CLASS;
    spec.dwords.emplace_back(RCEC_AT,
                             pci::in_field(pci::EXT_CAP_HEADER_VERSION, 2) | EXT_CAPID_RCEC);
    spec.dwords.emplace_back(RCEC_AT + pci::RCEC_BITMAP, 0x0000'0F0F);
    spec.dwords.emplace_back(RCEC_AT + pci::RCEC_BUS_NUMBERS, 0x0002'0100);
    if (!spec.aer)
        spec.dwords.emplace_back(pci::EXT_CAPS,
                                 pci::in_field(pci::EXT_CAP_HEADER_NEXT_OFFSET, RCEC_AT) |
                                     pci::in_field(pci::EXT_CAP_HEADER_VERSION, 1));
}

unsigned size_of(unsigned flags) {
    if (flags & ODD_SIZE)
        return flags & HEADER_ONLY ? 0x36 : 0x88;
    if (flags & HEADER_ONLY)
        return pci::HEADER_SIZE;
    return flags & NOT_EXTENDED ? pci::CONFIG_SIZE : pci::EXT_CONFIG_SIZE;
}

FunctionSpec function_of(std::span<const std::uint8_t> row) {
    const unsigned flags = row[7];
    FunctionSpec spec{.id = pci::routing_id_of(pci::ari_bdf(row[1], row[2]))};
    spec.port = row[3] > 15 ? std::nullopt : std::optional(row[3]);
    spec.secondary = row[4];
    spec.subordinate = row[5];
    spec.payload_cap = row[6];
    spec.link_cap = pci::LINKCAP_ASPM_SUPPORT;
    spec.fast_b2b = (flags & FAST_B2B) != 0;
    if (flags & AER)
        spec.aer = tests::GEN_CAP | tests::CHK_CAP;
    if (flags & ARI)
        spec.next_ari = 0;
    spec.ari_forwarding = (flags & ARI) && spec.secondary != 0;
    spec.class_code = spec.secondary ? PCI_BRIDGE_CLASS : 0x020000;
    spec.size = size_of(flags);
    if (flags & MSI)
        add_interrupts(spec);
    if (flags & COLLECTOR)
        add_collector(spec);
    return spec;
}

// The low byte comes first.
std::uint32_t number_in(std::span<const std::uint8_t> bytes) {
    std::uint32_t value = 0;
    for (std::size_t i = bytes.size(); i-- > 0;)
        value = value << 8 | bytes[i];
    return value;
}

HostileEvent event_of(Input row, std::size_t function) {
    constexpr std::array<std::string_view, 5> WORDS = {"flr", "bus-reset", "insert", "remove",
                                                       SWAP};
    const unsigned kind = row[2] % WORDS.size(), flags = row[4];
    HostileEvent event{.function = function, .word = WORDS[kind], .value = {}, .status = 0};
    if (event.word == SWAP)
        event.value = row[3];
    else if (kind >= 2 && flags & 7)  // STATUS stands behind VALUE
        event.value = flags & 2 ? row[3] + 256U : row[3];
    if (flags & 4)
        event.status = row[5];
    return event;
}

void add_fault(HostileMachine &machine, RoutingId id, unsigned first, pci_err_t code) {
    machine.faults = [others = std::move(machine.faults),
                      own = tests::fail(tests::of(id), first, tests::FOREVER, code)](
                         ImageAccess &access) mutable {
        const pci_err_t error = others ? others(access) : PCI_OK;
        return error ? error : own(access);
    };
}

using Example = std::vector<std::pair<RoutingId, std::vector<std::uint8_t>>>;

Example read_example(const char *file) {
    const Dump dump = read_dump(std::string(EXAMPLES) + file, std::vector{0U});
    const ConfigImage &image = *dump.domains.at(0).image;
    Example example;
    for (const RoutingId id : image.functions())
        example.emplace_back(id, image.bytes(id));
    return example;
}

const Example &example(unsigned n) {
    static const std::array<Example, 2> all = {read_example("server.lspci"),
                                               read_example("qemu-q35.lspci")};
    return all[n % all.size()];
}

// Makes a machine row by row.
class Maker {
public:
    void take(Input row) {
        const unsigned n = row[1];
        switch (row[0]) {
        case 'F':
            add_function(row);
            break;
        case 'E':
            add_example(n);
            break;
        case 'A':
            machine_.failing_calloc = n;
            break;
        case 'S':
            machine_.managed[n] = false;
            break;
        case 'C':
            machine_.complete = true;
            break;
        default:
            if (!machine_.functions.empty())
                change(row, n % machine_.functions.size());
        }
    }

    HostileMachine machine_;

private:
    void add_function(Input row) {
        FunctionSpec spec = function_of(row);
        if (taken_.size() >= MOST_FUNCTIONS || !taken_.insert(spec.id).second)
            return;
        current_ = machine_.functions.size();
        machine_.functions.push_back({.spec = std::move(spec)});
    }

    void add_example(unsigned n) {
        if (!machine_.functions.empty())
            return;
        for (const auto &[id, bytes] : example(n)) {
            taken_.insert(id);
            machine_.functions.push_back({.spec = {.id = id}, .example = &bytes});
        }
        current_ = machine_.functions.size() - 1;
    }

    void change(Input row, std::size_t n) {
        FunctionSpec &spec = machine_.functions[current_].spec;
        if (row[0] == 'G')
            current_ = n;
        if (row[0] == 'V')
            machine_.with_events.push_back(n);
        if (row[0] == 'P' && machine_.events.size() < MOST_EVENTS)
            machine_.events.push_back(event_of(row, n));
        if (row[0] == 'D')
            spec.dwords.emplace_back(number_in(row.subspan(2, 2)) % (pci::EXT_CONFIG_SIZE / 4) * 4,
                                     number_in(row.subspan(4, 4)));
        if (row[0] == 'X')
            add_fault(machine_, spec.id, row[1], row[3]);
    }

    std::set<RoutingId> taken_;
    std::size_t current_ = 0;
};

std::vector<std::uint8_t> bytes_of(const HostileFunction &function, bool multi_function) {
    if (!function.example)
        return tests::config_bytes(function.spec, multi_function);
    std::vector<std::uint8_t> bytes = *function.example;
    for (const auto &[offset, value] : function.spec.dwords)
        for (unsigned i = 0; i < 4 && offset + i < bytes.size(); ++i)
            bytes[offset + i] = static_cast<std::uint8_t>(value >> 8 * i);
    return bytes;
}

}  // namespace

MachineSource HostileMachine::source() const {
    auto image = std::make_unique<ConfigImage>();
    for (const HostileFunction &function : functions) {
        const RoutingId id = function.spec.id;
        const bool multi_function = std::ranges::any_of(functions, [&](const auto &other) {
            return other.spec.id != id && (other.spec.id | 7) == (id | 7);
        });
        image->add(id, bdf_text(id), bytes_of(function, multi_function));
    }
    return {.name = "fuzz", .live = nullptr, .image = std::move(image)};
}

HostileMachine hostile_machine(Input rows) {
    Maker maker;
    for (; rows.size() >= ROW; rows = rows.subspan(ROW)) {
        if (rows[0] == 'T') {
            maker.machine_.features = {reinterpret_cast<const char *>(rows.data()) + ROW,
                                       rows.size() - ROW};
            break;
        }
        maker.take(rows.first(ROW));
    }
    return std::move(maker.machine_);
}

}  // namespace host::fuzz
