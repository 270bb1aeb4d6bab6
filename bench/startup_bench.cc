// Measures the time of a start-up on machines of 1,024 to 65,536 functions, beside a bare loop over
// the same configuration image that makes the fewest register accesses with which the same
// programming can be done: for each function Device Capabilities and Device Control read, Device
// Control written, and Advanced Error Capabilities and Control read and written.
//
// The machines fill whole buses: all 32 devices with all 8 functions. Bus 0 has a root port for
// each further bus, so that each is a hierarchy of its own, and integrated endpoints in the other
// places. Every measurement has a process of its own, because a module starts once in a process.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "host/base/log.h"
#include "host/exports/serve.h"
#include "host/machine/machine.h"
#include "host/space/config_image.h"
#include "module/startup.h"
#include "platform/pci_regs.h"
#include "platform/server.h"

namespace host::bench {
namespace {

constexpr unsigned PCIE_AT = 0x40;
constexpr unsigned AER_AT = 0x100;
constexpr unsigned CAP_VERSION = 2;
constexpr unsigned MPS_512 = 2;
constexpr std::uint32_t ETHERNET_CLASS = 0x020000;
constexpr std::size_t BYTES = 0x150;  // up to the end of the AER capability
constexpr unsigned FUNCTIONS_PER_BUS = 256;
constexpr int RUNS = 5;

struct Bytes {
    std::vector<std::uint8_t> bytes = std::vector<std::uint8_t>(BYTES);

    void put(unsigned offset, unsigned width, std::uint32_t value) {
        for (unsigned i = 0; i < width; i++)
            bytes[offset + i] = static_cast<std::uint8_t>(value >> 8 * i);
    }
};

std::vector<std::uint8_t> function_bytes(std::uint8_t port_type, unsigned secondary) {
    Bytes function;
    function.put(pci::VENDOR_ID, 4, 0x0001'1AF4);
    function.put(pci::STATUS, 2, pci::STATUS_CAPABILITIES_LIST);
    function.put(pci::CLASS_REVISION, 4,
                 pci::in_field(pci::CLASS_REVISION_CLASS_CODE,
                               secondary != 0 ? PCI_BRIDGE_CLASS : ETHERNET_CLASS));
    function.put(pci::HEADER_TYPE, 1,
                 pci::HEADER_TYPE_MULTI_FUNCTION |
                     (secondary != 0 ? pci::HEADER_LAYOUT_BRIDGE : 0U));
    if (secondary != 0) {
        function.put(pci::SECONDARY_BUS_NUMBER, 1, secondary);
        function.put(pci::SUBORDINATE_BUS_NUMBER, 1, secondary);
    }
    function.put(pci::CAPABILITIES_POINTER, 1, PCIE_AT);
    function.put(PCIE_AT, 2, CAPID_PCIE);
    function.put(PCIE_AT + pci::PCIE_CAPS, 2,
                 CAP_VERSION | pci::in_field(pci::PCIE_CAPS_DEVICE_PORT_TYPE, port_type));
    function.put(PCIE_AT + pci::DEVCAP, 4, MPS_512);
    function.put(AER_AT, 4, pci::in_field(pci::EXT_CAP_HEADER_VERSION, 1) | EXT_CAPID_AER);
    function.put(AER_AT + pci::AER_CONTROL, 4,
                 pci::AER_CONTROL_ECRC_GEN_CAPABLE | pci::AER_CONTROL_ECRC_CHK_CAPABLE);
    return function.bytes;
}

void fill(ConfigImage &image, unsigned functions) {
    const unsigned buses = functions / FUNCTIONS_PER_BUS;
    for (unsigned id = 0; id < functions; id++) {
        const unsigned place = id % FUNCTIONS_PER_BUS;
        const bool on_root_bus = id < FUNCTIONS_PER_BUS;
        const unsigned secondary = on_root_bus && place + 1 < buses ? place + 1 : 0;
        std::uint8_t type = on_root_bus ? PORT_TYPE_RCIEP : PORT_TYPE_ENDPOINT;
        if (secondary != 0)
            type = PORT_TYPE_ROOT_PORT;
        image.add(static_cast<RoutingId>(id), std::string(), function_bytes(type, secondary));
    }
}

struct Figures {
    double seconds;
    std::uint64_t accesses;
    long kilobytes;  // peak memory over what the machine itself takes
};

long peak_kilobytes() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

enum class Work { START_UP, THROUGH_HOST, ON_IMAGE };

void loop_through_host(const ConfigImage &image) {
    for (const RoutingId id : image.functions()) {
        std::uint32_t devcap = 0;
        std::uint16_t devctl = 0;
        std::uint32_t aer = 0;
        pci_hw->cfg_read(id, PCIE_AT + pci::DEVCAP, 4, &devcap, 0);
        pci_hw->cfg_read(id, PCIE_AT + pci::DEVCTL, 2, &devctl, 0);
        devctl = pci::set(devctl, pci::DEVCTL_MPS, pci::get(devcap, pci::DEVCAP_MPSS));
        pci_hw->cfg_write(id, PCIE_AT + pci::DEVCTL, 2, &devctl, 0);
        pci_hw->cfg_read(id, AER_AT + pci::AER_CONTROL, 4, &aer, 0);
        aer |= pci::AER_CONTROL_ECRC_GEN_ENABLE | pci::AER_CONTROL_ECRC_CHK_ENABLE;
        pci_hw->cfg_write(id, AER_AT + pci::AER_CONTROL, 4, &aer, 0);
    }
}

void loop_on_image(ConfigImage &image) {
    for (const RoutingId id : image.functions()) {
        std::uint32_t devcap = 0;
        std::uint32_t devctl = 0;
        std::uint32_t aer = 0;
        image.read(id, PCIE_AT + pci::DEVCAP, 4, devcap);
        image.read(id, PCIE_AT + pci::DEVCTL, 2, devctl);
        image.write(id, PCIE_AT + pci::DEVCTL, 2,
                    devctl | pci::in_field(pci::DEVCTL_MPS, pci::get(devcap, pci::DEVCAP_MPSS)));
        image.read(id, AER_AT + pci::AER_CONTROL, 4, aer);
        image.write(id, AER_AT + pci::AER_CONTROL, 4,
                    aer | pci::AER_CONTROL_ECRC_GEN_ENABLE | pci::AER_CONTROL_ECRC_CHK_ENABLE);
    }
}

void start_module(const std::string &config_argument) {
    const char *argument = config_argument.c_str();
    const mod_init_args_t args = {{3, 0}, {3, 0}, 1, &argument};
    if (enable_features::start_module(&args) != PCI_OK)
        std::abort();
}

// Aborts unless the work was done: the last function has its payload size and both ECRC bits.
void check(ConfigImage &image) {
    const RoutingId last = image.functions().back();
    std::uint32_t devctl = 0;
    std::uint32_t aer = 0;
    image.read(last, PCIE_AT + pci::DEVCTL, 2, devctl);
    image.read(last, AER_AT + pci::AER_CONTROL, 4, aer);
    if ((devctl & pci::DEVCTL_MPS) != pci::in_field(pci::DEVCTL_MPS, MPS_512) ||
        (aer & pci::AER_CONTROL_ECRC_GEN_ENABLE) == 0 ||
        (aer & pci::AER_CONTROL_ECRC_CHK_ENABLE) == 0)
        std::abort();
}

Figures measure(unsigned functions, Work work, bool count, const std::string &config) {
    ConfigImage image;
    fill(image, functions);
    Machine machine(image);
    serve(&machine);
    open_log({.verbosity = 0});
    std::uint64_t accesses = 0;
    if (count)
        image.set_filter([&](ImageAccess &) {
            accesses++;
            return PCI_OK;
        });
    const long before = peak_kilobytes();
    const auto begin = std::chrono::steady_clock::now();
    if (work == Work::START_UP)
        start_module("--config=" + config);
    else if (work == Work::THROUGH_HOST)
        loop_through_host(image);
    else
        loop_on_image(image);
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin;
    const long after = peak_kilobytes();
    image.set_filter({});
    check(image);
    return {time.count(), accesses, after - before};
}

Figures in_child(const std::function<Figures()> &measurement) {
    int ends[2];
    if (pipe(ends) != 0)
        std::abort();
    const pid_t child = fork();
    if (child == 0) {
        const Figures figures = measurement();
        _exit(write(ends[1], &figures, sizeof figures) == sizeof figures ? 0 : 1);
    }
    close(ends[1]);  // a child that fails must not leave the read waiting
    Figures figures{};
    int status = 0;
    const bool got = read(ends[0], &figures, sizeof figures) == sizeof figures;
    close(ends[0]);
    if (waitpid(child, &status, 0) != child || status != 0 || !got)
        std::abort();
    return figures;
}

// Returns the fastest of some runs, with the accesses counted in one more.
Figures best(unsigned functions, Work work, const std::string &config) {
    Figures found = in_child([&] { return measure(functions, work, true, config); });
    found.seconds = 1e9;
    for (int run = 0; run < RUNS; run++) {
        const Figures figures = in_child([&] { return measure(functions, work, false, config); });
        found.seconds = std::min(found.seconds, figures.seconds);
        found.kilobytes = figures.kilobytes;
    }
    return found;
}

}  // namespace
}  // namespace host::bench

// Arguments: numbers of functions, multiples of 256 from 512 on, to measure instead of the usual
// ones.
int main(int argc, char **argv) {
    using namespace host::bench;
    std::vector<unsigned> sizes;
    for (int i = 1; i < argc; i++)
        sizes.push_back(static_cast<unsigned>(std::strtoul(argv[i], nullptr, 10)));
    if (sizes.empty())
        sizes = {1024, 4096, 16384, 65536};
    const auto config = std::filesystem::temp_directory_path() /
                        ("startup_bench-" + std::to_string(getpid()) + ".cfg");
    std::ofstream(config) << "MPS=all:max\nECRC=all:+:+\n";
    if (std::freopen("/dev/null", "w", stderr) == nullptr)
        return 1;
    std::printf("| functions | start-up ms | us a function | accesses | peak KiB | bare, host ms | "
                "bare, image ms | bare accesses | ratio, host | ratio, image |\n"
                "| ---: | ---: | ---: | ---: | ---: | ---: | ---: | ---: | ---: | ---: |\n");
    for (const unsigned functions : sizes) {
        const Figures start = best(functions, Work::START_UP, config);
        const Figures host = best(functions, Work::THROUGH_HOST, config);
        const Figures image = best(functions, Work::ON_IMAGE, config);
        std::printf("| %u | %.2f | %.3f | %llu | %ld | %.2f | %.2f | %llu | %.1f | %.1f |\n",
                    functions, start.seconds * 1e3, start.seconds * 1e6 / functions,
                    static_cast<unsigned long long>(start.accesses), start.kilobytes,
                    host.seconds * 1e3, image.seconds * 1e3,
                    static_cast<unsigned long long>(image.accesses), start.seconds / host.seconds,
                    start.seconds / image.seconds);
        std::fflush(stdout);
    }
    std::filesystem::remove(config);
    return 0;
}
