// How much stack the module takes on the deepest tree that bus numbers allow: 255 bridges, each
// below the one before, and an endpoint at the end. Start-up, hooks and offered operations each run
// on a thread of their own, whose stack is filled with a mark before: what has lost it was used.
// The host's part, reading the registers and writing the messages, is included.
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
#include "host/space/registers.h"
#include "module/startup.h"

namespace host::bench {
namespace {

constexpr unsigned PCIE_AT = 0x40;
constexpr unsigned AER_AT = 0x100;
constexpr unsigned LAST_BUS = 255;
constexpr std::size_t STACK = std::size_t{1} << 20;
constexpr unsigned char MARK = 0xA5;

// Device 0 of a bus: a bridge to the next bus, on the last bus an endpoint.
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
    put(reg::VENDOR_ID, 4, 0x0001'1AF4);
    put(reg::STATUS, 2, reg::STATUS_CAP_LIST | reg::STATUS_FAST_B2B);
    put(reg::REVISION_ID, 4, (bridge ? 0x060400U : 0x020000U) << 8);
    put(reg::HEADER_TYPE, 1, bridge ? 1 : 0);
    if (bridge)
        put(0x18, 4, LAST_BUS << 16 | (bus + 1) << 8);
    put(reg::CAP_POINTER, 1, PCIE_AT);
    put(PCIE_AT, 4, (2U | unsigned{type} << 4) << 16 | CAPID_PCIE);
    put(PCIE_AT + reg::DEVCAP, 4, 2);  // 512 bytes
    put(PCIE_AT + reg::LINKCAP, 4, 0xC00);
    put(AER_AT, 4, 0x0001'0000 | EXT_CAPID_AER);
    put(AER_AT + reg::AER_CONTROL, 4, reg::AER_GEN_CAPABLE | reg::AER_CHK_CAPABLE);
    return bytes;
}

// The bytes of stack that `work` takes.
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
        image.add(static_cast<RoutingId>(bus << 8), std::string(), function_bytes(bus));
    Machine machine(image);
    serve(&machine);
    open_log(4, true);
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
    image.read(LAST_BUS << 8, PCIE_AT + reg::DEVCTL, 2, devctl);
    return devctl >> 5 == 2 ? 0 : 1;  // it has its payload size
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
