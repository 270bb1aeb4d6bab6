#include "fuzz/support.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>

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

// The file of states, or null.
std::FILE *states() {
    static const char *const name = std::getenv("FUZZ_STATES");
    static std::FILE *const file = name ? std::fopen(name, "a") : nullptr;
    return file;
}

// FNV-1a.
class Hash {
public:
    void add(Input bytes) {
        for (const std::uint8_t byte : bytes)
            value_ = (value_ ^ byte) * 0x100'0000'01B3;
    }
    void add(std::string_view text) {
        add({reinterpret_cast<const std::uint8_t *>(text.data()), text.size()});
    }
    std::uint64_t value() const { return value_; }

private:
    std::uint64_t value_ = 0xCBF2'9CE4'8422'2325;
};

Hash messages;

#if defined(__has_feature) && __has_feature(address_sanitizer)
constexpr bool CHECKS_ARGUMENTS = true;
#else
constexpr bool CHECKS_ARGUMENTS = false;
#endif

// Where the heap is differs from run to run, so a message with an address counts by its format.
// Without a sanitizer, formatting would find nothing and take most of the time.
int take_message(int, int, int, const char *format, va_list args) {
    if (!CHECKS_ARGUMENTS && !states())
        return 0;
    std::array<char, 512> text;
    std::vsnprintf(text.data(), text.size(), format, args);
    if (states())
        messages.add(std::strstr(format, "%p") ? format : text.data());
    return 0;
}

log_handle_t silent_log = {.log_output = take_message};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    open_log({.verbosity = -1, .debug = true});
    pci_slog = pci_dbg = &silent_log;
    return 0;
}

MemoryFile::MemoryFile() : descriptor_(memfd_create("fuzz", MFD_CLOEXEC)) {
    if (descriptor_ < 0)
        std::abort();
    path_ = "/proc/self/fd/" + std::to_string(descriptor_);
}

void MemoryFile::set(std::string_view text) const {
    const auto size = static_cast<off_t>(text.size());
    if (lseek(descriptor_, 0, SEEK_END) > size && ftruncate(descriptor_, size) != 0)
        std::abort();
    if (pwrite(descriptor_, text.data(), text.size(), 0) != size)
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

// A main thread's stack is told by its memory map, which takes longer to read than a start-up. That
// it cannot be told is one of the cases that start-up knows.
void start_module_with(std::string_view features, unsigned failing_calloc) {
    static const MemoryFile file;
    static const std::string argument = "--config=" + file.path();
    tests::reset_module();
    file.set(features);
    if (failing_calloc > 0)
        tests::fail_calloc(failing_calloc);
    else
        tests::fail_calls(1, tests::FOREVER, "pthread_getattr_np");
    const char *vector[] = {argument.c_str()};
    const mod_init_args_t arguments{
        .server_version = {3, 0}, .lib_version = {3, 0}, .argc = 1, .argv = vector};
    enable_features::start_module(&arguments);
    tests::fail_calls(0);
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

void end_execution(Input input, const ConfigImage &image) {
    if (!states())
        return;
    for (const RoutingId id : image.functions())
        messages.add(image.bytes(id));
    Hash name;
    name.add(input);
    std::fprintf(states(), "%016lx %016lx\n", name.value(), messages.value());
    std::fflush(states());
    messages = {};
}

}  // namespace host::fuzz
