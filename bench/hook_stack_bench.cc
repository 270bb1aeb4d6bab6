// Measures the stack that the module takes on the deepest tree that bus numbers allow: 255 bridges,
// each below the one before, and an endpoint at the end. Start-up, hooks and offered operations
// each run on a thread of their own, whose stack is filled with a mark first: bytes that lost the
// mark were used. The host's part, reading the registers and writing the messages, is included.
#include <pthread.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include <unistd.h>

#include "features/aspm/link_control.h"
#include "features/fb2b/control.h"
#include "host/base/log.h"
#include "host/exports/hooks.h"
#include "host/exports/serve.h"
#include "host/machine/machine.h"
#include "host/space/config_image.h"
#include "module/startup.h"
#include "platform/pci_regs.h"

namespace host::bench {
namespace {

constexpr unsigned PCIE_AT = 0x40;
constexpr unsigned AER_AT = 0x100;
constexpr unsigned LAST_BUS = pci::HIGHEST_BUS;
constexpr unsigned CAP_VERSION = 2;
constexpr unsigned MPS_512 = 2;
constexpr std::uint32_t ETHERNET_CLASS = 0x020000;
constexpr std::size_t STACK = std::size_t{1} << 20;
constexpr unsigned char MARK = 0xA5;

// Returns the bytes of device 0 of a bus: a bridge to the next bus; on the last bus an endpoint.
std::vector<std::uint8_t> function_bytes(unsigned bus) {
    std::vector<std::uint8_t> bytes(AER_AT + 0x48);
    const auto put = [&](unsigned offset, unsigned width, std::uint32_t value) {
        for (unsigned i = 0; i < width; i++)
            bytes[offset + i] = static_cast<std::uint8_t>(value >> 8 * i);
    };
    const bool bridge = bus < LAST_BUS;
    const std::uint8_t type = bus == 0 ? PORT_TYPE_ROOT_PORT
                              : bridge ? PORT_TYPE_SWITCH_DOWNSTREAM
                                       : PORT_TYPE_ENDPOINT;
    put(pci::VENDOR_ID, 4, 0x0001'1AF4);
    put(pci::STATUS, 2, pci::STATUS_CAPABILITIES_LIST | pci::STATUS_FAST_B2B_CAPABLE);
    put(pci::CLASS_REVISION, 4,
        pci::in_field(pci::CLASS_REVISION_CLASS_CODE, bridge ? PCI_BRIDGE_CLASS : ETHERNET_CLASS));
    put(pci::HEADER_TYPE, 1, bridge ? pci::HEADER_LAYOUT_BRIDGE : 0);
    if (bridge)
        put(pci::BUS_NUMBERS, 4,
            pci::in_field(pci::BUS_NUMBERS_SUBORDINATE, LAST_BUS) |
                pci::in_field(pci::BUS_NUMBERS_SECONDARY, bus + 1));
    put(pci::CAPABILITIES_POINTER, 1, PCIE_AT);
    put(PCIE_AT, 2, CAPID_PCIE);
    put(PCIE_AT + pci::PCIE_CAPS, 2,
        CAP_VERSION | pci::in_field(pci::PCIE_CAPS_DEVICE_PORT_TYPE, type));
    put(PCIE_AT + pci::DEVCAP, 4, MPS_512);
    put(PCIE_AT + pci::LINKCAP, 4, pci::LINKCAP_ASPM_SUPPORT);
    put(AER_AT, 4, pci::in_field(pci::EXT_CAP_HEADER_VERSION, 1) | EXT_CAPID_AER);
    put(AER_AT + pci::AER_CONTROL, 4,
        pci::AER_CONTROL_ECRC_GEN_CAPABLE | pci::AER_CONTROL_ECRC_CHK_CAPABLE);
    return bytes;
}

// Returns the bytes of stack that `work` takes.
std::size_t stack_of(const std::function<void()> &work) {
    void *memory = std::aligned_alloc(4096, STACK);
    pthread_attr_t attributes;
    pthread_t thread{};
    if (memory == nullptr || pthread_attr_init(&attributes) != 0)
        std::abort();
    std::memset(memory, MARK, STACK);
    const auto run = [](void *argument) -> void * {
        (*static_cast<const std::function<void()> *>(argument))();
        return nullptr;
    };
    if (pthread_attr_setstack(&attributes, memory, STACK) != 0 ||
        pthread_create(&thread, &attributes, run, const_cast<std::function<void()> *>(&work)) != 0)
        std::abort();
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
    const auto *first = static_cast<const unsigned char *>(memory);
    const auto *lowest =
        std::find_if(first, first + STACK, [](unsigned char byte) { return byte != MARK; });
    const auto used = static_cast<std::size_t>(first + STACK - lowest);
    std::free(memory);
    return used;
}

void start(const std::string &config) {
    const std::string option = "--config=" + config;
    const char *argument = option.c_str();
    const mod_init_args_t args = {{3, 0}, {3, 0}, 1, &argument};
    if (enable_features::start_module(&args) != PCI_OK)
        std::abort();
}

int measure(const std::string &config) {
    ConfigImage image;
    for (unsigned bus = 0; bus <= LAST_BUS; bus++)
        image.add(pci::routing_id_of(pci::plain_bdf(bus, 0, 0)), std::string(),
                  function_bytes(bus));
    Machine machine(image);
    serve(&machine);
    open_log({.verbosity = 4, .debug = true});
    bridge_rec *const root_port = machine.bridges().by_bdf(0);
    const std::pair<const char *, std::function<void()>> works[] = {
        {"nothing: what a thread takes", [] {}},
        {"start-up", [&] { start(config); }},
        {"hook after a bus reset", [] { call_reset_hooks(BUSCFG_HOOK_POST_RESET, 1, 0, 0); }},
        {"hook after an insertion",
         [&] { call_bridge_hooks(BUSCFG_HOOK_POST_INSERTION, root_port, 0, 0); }},
        {"ASPM everywhere", [] { enable_features::enable_aspm_feature(BDF_NONE); }},
        {"fast back-to-back everywhere", [] { enable_features::enable_fb2b_feature(BDF_NONE); }},
    };
    std::printf("| work on %u nested bridges | stack, bytes |\n| --- | ---: |\n", LAST_BUS);
    for (const auto &[name, work] : works)
        std::printf("| %s | %zu |\n", name, stack_of(work));
    std::uint32_t devctl = 0;
    image.read(pci::routing_id_of(pci::plain_bdf(LAST_BUS, 0, 0)), PCIE_AT + pci::DEVCTL, 2,
               devctl);
    const bool has_its_size = (devctl & pci::DEVCTL_MPS) == pci::in_field(pci::DEVCTL_MPS, MPS_512);
    return has_its_size ? 0 : 1;
}

}  // namespace
}  // namespace host::bench

int main() {
    const auto config = std::filesystem::temp_directory_path() /
                        ("hook_stack_bench-" + std::to_string(getpid()) + ".cfg");
    std::ofstream(config) << "MPS=all:max\nECRC=all:+:+\n";
    if (std::freopen("/dev/null", "w", stderr) == nullptr)
        return 1;
    const int status = host::bench::measure(config);
    std::filesystem::remove(config);
    return status;
}
