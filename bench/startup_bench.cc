// Measures the time of a start-up on machines of 1,024 to 65,536 functions, beside two bare loops
// over the same configuration image, each through the host's exported functions and on the image
// itself:
// - the same accesses: those that a start-up has been seen to make, in their order, and nothing
//   else. What a start-up takes more is what the module and the host do between accesses;
// - the fewest accesses with which the same programming can be done: for each function Device
//   Capabilities and Device Control read, Device Control written, and Advanced Error Capabilities
//   and Control read and written.
//
// Every measurement has a process of its own, because a module starts once in a process.
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

#include "bench/full_buses.h"
#include "host/base/log.h"
#include "host/exports/serve.h"
#include "host/machine/machine.h"
#include "host/space/config_image.h"
#include "module/startup.h"
#include "platform/pci_regs.h"
#include "platform/server.h"

namespace host::bench {
namespace {

constexpr int RUNS = 9;

struct Figures {
    double seconds;
    long kilobytes;  // peak memory over what the machine itself takes
};

using Accesses = std::vector<ImageAccess>;
using Work = std::function<void(ConfigImage &image)>;

long peak_kilobytes() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

void replay_through_host(const Accesses &accesses) {
    for (const ImageAccess &access : accesses) {
        std::uint32_t value = access.value;
        if (access.is_write)
            pci_hw->cfg_write(access.id, access.offset, access.width, &value, 0);
        else
            pci_hw->cfg_read(access.id, access.offset, access.width, &value, 0);
    }
}

void replay_on_image(const Accesses &accesses, ConfigImage &image) {
    for (const ImageAccess &access : accesses) {
        std::uint32_t value = access.value;
        if (access.is_write)
            image.write(access.id, access.offset, access.width, value);
        else
            image.read(access.id, access.offset, access.width, value);
    }
}

void fewest_through_host(const ConfigImage &image) {
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

void fewest_on_image(ConfigImage &image) {
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

void start_module(const std::string &config) {
    const std::string option = "--config=" + config;
    const char *argument = option.c_str();
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

// Does the work on a machine of its own. `prepare` comes before the time is taken.
Figures run(unsigned functions, const Work &work, const Work &prepare) {
    ConfigImage image;
    fill(image, functions);
    Machine machine(image);
    serve(&machine);
    open_log({.verbosity = 0});
    prepare(image);
    const long before = peak_kilobytes();
    const auto begin = std::chrono::steady_clock::now();
    work(image);
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin;
    const long after = peak_kilobytes();
    image.set_filter({});
    check(image);
    return {time.count(), after - before};
}

// Returns what `work` returns in a process of its own.
template <typename Item>
std::vector<Item> in_child(const std::function<std::vector<Item>()> &work) {
    int ends[2];
    if (pipe(ends) != 0)
        std::abort();
    const pid_t child = fork();
    if (child == 0) {
        const std::vector<Item> items = work();
        std::FILE *const out = fdopen(ends[1], "w");
        const bool is_whole = out != nullptr && std::fwrite(items.data(), sizeof(Item),
                                                            items.size(), out) == items.size();
        _exit(is_whole && std::fclose(out) == 0 ? 0 : 1);
    }
    close(ends[1]);  // a child that fails must not leave the read waiting
    std::vector<Item> items;
    std::FILE *const in = fdopen(ends[0], "r");
    for (Item item{}; in != nullptr && std::fread(&item, sizeof item, 1, in) == 1;)
        items.push_back(item);
    int status = 0;
    if (in == nullptr || std::fclose(in) != 0 || waitpid(child, &status, 0) != child || status != 0)
        std::abort();
    return items;
}

// Returns the accesses that the image saw, with what they read or wrote.
Accesses accesses_of(unsigned functions, const Work &work) {
    return in_child<ImageAccess>([&] {
        Accesses seen;
        run(functions, work, [&](ConfigImage &image) {
            image.set_filter([&](const ImageAccess &access) {
                seen.push_back(access);
                return PCI_OK;
            });
        });
        return seen;
    });
}

// Aborts unless a loop makes just the accesses that it is to make, and reads and writes the same.
void check_same(unsigned functions, const Accesses &accesses, const Work &replay) {
    const auto is_same = [](const ImageAccess &a, const ImageAccess &b) {
        return a.id == b.id && a.offset == b.offset && a.width == b.width &&
               a.is_write == b.is_write && a.value == b.value;
    };
    if (!std::ranges::equal(accesses, accesses_of(functions, replay), is_same))
        std::abort();
}

// Returns the fastest of some runs.
Figures best(unsigned functions, const Work &work) {
    Figures found{.seconds = 1e9, .kilobytes = 0};
    for (int i = 0; i < RUNS; i++) {
        const Figures figures = in_child<Figures>([&] {
                                    return std::vector{run(functions, work, [](ConfigImage &) {})};
                                }).at(0);
        found.seconds = std::min(found.seconds, figures.seconds);
        found.kilobytes = figures.kilobytes;
    }
    return found;
}

void measure(unsigned functions, const std::string &config) {
    const Work start_up = [&](ConfigImage &) { start_module(config); };
    const Accesses accesses = accesses_of(functions, start_up);
    const Work loops[] = {
        [&](ConfigImage &) { replay_through_host(accesses); },
        [&](ConfigImage &image) { replay_on_image(accesses, image); },
        [](const ConfigImage &image) { fewest_through_host(image); },
        [](ConfigImage &image) { fewest_on_image(image); },
    };
    check_same(functions, accesses, loops[0]);
    check_same(functions, accesses, loops[1]);
    const Figures start = best(functions, start_up);
    std::printf("| %u | %.2f | %.3f | %zu | %.1f | %ld |", functions, start.seconds * 1e3,
                start.seconds * 1e6 / functions, accesses.size(),
                start.seconds * 1e9 / static_cast<double>(accesses.size()), start.kilobytes);
    for (const Work &loop : loops) {
        const double seconds = best(functions, loop).seconds;
        std::printf(" %.2f (%.1f) |", seconds * 1e3, start.seconds / seconds);
    }
    std::printf("\n");
    std::fflush(stdout);
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
    std::printf(
        "| functions | start-up, ms | us a function | accesses | ns an access | peak, KiB | "
        "same, host | same, image | fewest, host | fewest, image |\n"
        "| ---: | ---: | ---: | ---: | ---: | ---: | ---: | ---: | ---: | ---: |\n");
    for (const unsigned functions : sizes)
        measure(functions, config);
    std::filesystem::remove(config);
    return 0;
}
