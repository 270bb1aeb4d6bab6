// A machine of files, as the kernel shows one: a folder of links to functions, each below the
// bridge above it. Unlike registers, all bytes of a file keep what is written.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "host/space/live_space.h"
#include "tests/support/test_machine.h"

namespace host::tests {

namespace fs = std::filesystem;

class LiveMachine : public ::testing::Test {
protected:
    LiveMachine() { fs::create_directories(sysfs.folder() / "devices"); }
    ~LiveMachine() override { fs::remove_all(folder); }

    static void write(const fs::path &file, std::string_view text) { std::ofstream(file) << text; }
    static std::string read(const fs::path &file) {
        std::ostringstream text;
        if (fs::is_regular_file(file))
            text << std::ifstream(file).rdbuf();
        return text.str();
    }

    // Makes a function, in the place of any other. The new files are made before the old ones are
    // removed, because they could get the same inodes otherwise.
    void plug(RoutingId id, const std::vector<std::uint8_t> &bytes) {
        const fs::path made = folder / "made";
        const unsigned root = pci::bus_of(id);
        const fs::path place =
            below.try_emplace(root, "devices/pci0000:" + bus_text(root)).first->second /
            kernel_address(0, id);
        fs::create_directory(made);
        write(made / "config", {reinterpret_cast<const char *>(bytes.data()), bytes.size()});
        write(made / "reset_method", "bus\n");
        write(made / "reset", "");
        unplug(id);
        fs::create_directories((folder / place).parent_path());
        fs::rename(made, folder / place);
        fs::create_symlink("../../.." / place, sysfs.file(id, "").parent_path());
        if ((bytes[pci::HEADER_TYPE] & pci::HEADER_TYPE_LAYOUT) == pci::HEADER_LAYOUT_BRIDGE)
            for (unsigned bus = bytes[pci::SECONDARY_BUS_NUMBER];
                 bus <= bytes[pci::SUBORDINATE_BUS_NUMBER]; ++bus)
                below[bus] = place;
    }
    // Makes the functions that functions() reads from `specs`.
    void plug(const std::string &specs) {
        for (const FunctionSpec &spec : functions(specs))
            plug(spec.id, config_bytes(spec, false));
    }
    // Removes the function and everything below it.
    void unplug(RoutingId id) const {
        std::error_code none;
        fs::remove_all(fs::canonical(sysfs.file(id, ""), none));
        for (const auto &link : fs::directory_iterator(sysfs.folder() / "devices"))
            if (!fs::exists(link))
                fs::remove(link);
    }

    // Changes registers, as hardware or another program does.
    void poke(RoutingId id, unsigned offset, std::string_view bytes) const {
        std::fstream(sysfs.file(id, "config"), std::ios::in | std::ios::out).seekp(offset) << bytes;
    }
    void replace(RoutingId id, const std::string &name, const fs::path &target) const {
        fs::remove(sysfs.file(id, name));
        if (!target.empty())
            fs::create_symlink(target, sysfs.file(id, name));
    }
    // Makes writes fail, as in a kernel that is locked down.
    void forbid_writes(RoutingId id) const {
        fs::permissions(sysfs.file(id, "config"), fs::perms::sticky_bit, fs::perm_options::add);
    }

    const fs::path folder = [] {
        std::string name = fs::temp_directory_path() / "live_machine_XXXXXX";
        return fs::path(mkdtemp(name.data()));
    }();
    const Sysfs sysfs{0, folder / "bus/pci"};
    std::map<unsigned, fs::path> below;  // by bus: what leads to it
};

}  // namespace host::tests
