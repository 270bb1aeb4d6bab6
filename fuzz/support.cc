#include "fuzz/support.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <set>

#include "host/base/address.h"
#include "host/base/input.h"
#include "host/base/log.h"
#include "host/watch/bus_events.h"
#include "host/watch/event_player.h"
#include "module/startup.h"
#include "platform/pci_regs.h"
#include "tests/support/faults.h"
#include "tests/support/module_state.h"

namespace host::fuzz {
namespace {

using tests::at;
using tests::FunctionSpec;

constexpr std::size_t ROW = 8;
// More functions would show nothing new and take more time.
constexpr std::size_t MOST_FUNCTIONS = 24;

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

void add_fault(HostileMachine &machine, RoutingId id, unsigned first, pci_err_t code) {
    machine.faults = [others = std::move(machine.faults),
                      own = tests::fail(tests::of(id), first, tests::FOREVER, code)](
                         ImageAccess &access) mutable {
        const pci_err_t error = others ? others(access) : PCI_OK;
        return error ? error : own(access);
    };
}

}  // namespace

void open_silent_log() {
    open_log({.verbosity = -1, .debug = true});
    observe_log([](const LogMessage &) {});
}

MemoryFile::MemoryFile() : descriptor_(memfd_create("fuzz", MFD_CLOEXEC)) {
    if (descriptor_ < 0)
        std::abort();
    path_ = "/proc/self/fd/" + std::to_string(descriptor_);
}

void MemoryFile::set(std::string_view text) const {
    if (ftruncate(descriptor_, 0) != 0 ||
        pwrite(descriptor_, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size()))
        std::abort();
}

std::vector<FunctionSpec> small_machine() {
    constexpr auto BOTH = tests::GEN_CAP | tests::CHK_CAP;
    return {
        {.id = at(0, 0), .port = std::nullopt, .class_code = HOST_BRIDGE_CLASS},
        {.id = at(0, 1),
         .port = PORT_TYPE_ROOT_PORT,
         .secondary = 1,
         .subordinate = 4,
         .payload_cap = 2,
         .aer = BOTH},
        {.id = at(0, 2),
         .port = PORT_TYPE_ROOT_PORT,
         .secondary = 5,
         .payload_cap = 5,
         .ari_forwarding = true},
        {.id = at(0, 3), .port = PORT_TYPE_RCIEP, .payload_cap = 1, .aer = tests::GEN_CAP},
        {.id = at(0, 4), .port = std::nullopt, .secondary = 6, .fast_b2b = true},
        {.id = at(0, 5), .port = PORT_TYPE_EVENT_COLLECTOR, .class_code = EVENT_COLLECTOR_CLASS},
        {.id = at(1),
         .port = PORT_TYPE_SWITCH_UPSTREAM,
         .secondary = 2,
         .subordinate = 4,
         .payload_cap = 3},
        {.id = at(2, 0),
         .port = PORT_TYPE_SWITCH_DOWNSTREAM,
         .secondary = 3,
         .payload_cap = 3,
         .aer = BOTH},
        {.id = at(2, 1), .port = PORT_TYPE_SWITCH_DOWNSTREAM, .secondary = 4, .payload_cap = 3},
        {.id = at(3, 0, 0), .payload_cap = 1, .aer = BOTH},
        {.id = at(3, 0, 1), .payload_cap = 2, .aer = BOTH | tests::GEN_ON | tests::CHK_ON},
        {.id = at(4), .port = PORT_TYPE_LEGACY_ENDPOINT, .payload_cap = 1, .aer = tests::CHK_CAP},
        {.id = tests::ari_at(5, 0), .payload_cap = 5, .aer = BOTH, .next_ari = 17},
        {.id = tests::ari_at(5, 17), .payload_cap = 5, .aer = BOTH, .next_ari = 0},
        {.id = at(6, 1), .port = std::nullopt, .fast_b2b = true, .size = pci::CONFIG_SIZE},
    };
}

HostileMachine hostile_machine(std::span<const std::uint8_t> rows) {
    HostileMachine machine;
    std::set<RoutingId> taken;
    for (; rows.size() >= ROW; rows = rows.subspan(ROW)) {
        const unsigned n = rows[1];
        if (rows[0] == 'F') {
            FunctionSpec spec = function_of(rows);
            if (taken.size() < MOST_FUNCTIONS && taken.insert(spec.id).second)
                machine.functions.push_back(std::move(spec));
        }
        if (rows[0] == 'A')
            machine.failing_calloc = n;
        if (machine.functions.empty())
            continue;
        FunctionSpec &last = machine.functions.back();
        if (rows[0] == 'D')
            last.dwords.emplace_back(number_in(rows.subspan(2, 2)) % (pci::EXT_CONFIG_SIZE / 4) * 4,
                                     number_in(rows.subspan(4, 4)));
        if (rows[0] == 'X')
            add_fault(machine, last.id, n, rows[3]);
    }
    return machine;
}

MachineSource source_of(const std::vector<FunctionSpec> &functions) {
    auto image = std::make_unique<ConfigImage>();
    for (const FunctionSpec &spec : functions)
        image->add(spec.id, bdf_text(spec.id),
                   tests::config_bytes(spec, std::ranges::any_of(functions, [&](const auto &other) {
                                           return other.id != spec.id &&
                                                  (other.id | 7) == (spec.id | 7);
                                       })));
    return {.name = "fuzz", .live = nullptr, .image = std::move(image)};
}

void start_module_with(std::string_view features) {
    static const MemoryFile file;
    tests::reset_module();
    file.set(features);
    const std::string argument = "--config=" + file.path();
    const char *vector[] = {argument.c_str()};
    const mod_init_args_t arguments{
        .server_version = {3, 0}, .lib_version = {3, 0}, .argc = 1, .argv = vector};
    enable_features::start_module(&arguments);
}

void play_each(const std::vector<std::string> &lines, const MachineSource &source,
               Machine &machine) {
    const auto player = player_for(source, machine);
    for (const std::string &line : lines) {
        std::vector<BusEvent> events;
        try {
            events = parse_bus_events(line, "events", machine, 0);
        } catch (const InputError &) {
            continue;
        }
        for (const BusEvent &event : events)
            player->play(event);
    }
}

std::vector<std::string> all_events_of(bdf_t bdf) {
    std::vector<std::string> lines;
    for (const char *word : {"flr ", "bus-reset ", "remove ", "flr ", "insert ", "bus-reset "})
        lines.push_back(word + bdf_text(bdf));
    return lines;
}

}  // namespace host::fuzz
