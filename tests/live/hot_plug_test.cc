// Functions that come and go in a machine of files: the hooks that are called, their order, and
// what they find.
#include "host/watch/hot_plug.h"

#include <cerrno>
#include <cstdlib>
#include <functional>

#include "host/exports/hooks.h"
#include "host/exports/payload_guard.h"
#include "host/exports/serve.h"
#include "host/space/live_space.h"
#include "platform/buscfg.h"
#include "tests/live/live_machine.h"
#include "tests/support/faults.h"

namespace host::tests {

static std::string told;

// "3 01:00.0 2: 1.0=0 2.0-;": the hook's kind, bridge and bus, and the functions that are found on
// other buses than 0 with their Device IDs, "-" for what cannot be read.
template <std::uint32_t KIND>
static void add_hook() {
    auto *block = static_cast<buscfg_hook_reg_t *>(std::calloc(1, sizeof(buscfg_hook_reg_t)));
    const insertion_hook_t hook = [](bridge_rec *bridge, std::uint32_t bus, int) {
        told +=
            std::to_string(KIND) + ' ' + bdf_text(bridge->bdf) + ' ' + std::to_string(bus) + ':';
        const Machine &machine = served()->machine;
        for (const Function *function : machine.functions()) {
            const RoutingId id = function->id();
            std::uint32_t device = 0;
            if (pci::bus_of(id) == 0 || !machine.find(id))
                continue;
            const bool is_read = machine.space().read(id, 2, 2, device) == PCI_OK;
            told += ' ' + bdf_text(id) + (is_read ? '=' + std::to_string(device) : "-");
        }
        told += '\n';
    };
    block->kind = KIND;
    block->hook = reinterpret_cast<buscfg_hook_t>(hook);
    EXPECT_EQ(buscfg->add_hook(block), PCI_OK);
}

using HotPlugs = LiveMachine;

TEST_F(HotPlugs, AreToldBeforeAndAfterWhatHappens) {
    constexpr RoutingId PORT = at(0, 1), SWITCH = at(1), CARD = at(2);
    plug("0.1:4>1-3 0.2:4>5-5 1.0:5>2-3 2.0:0");
    poke(SWITCH, pci::SUBORDINATE_BUS_NUMBER, "\2");
    LiveSpace space(0, LiveSpace::Mode::READ_AND_WRITE, sysfs.folder());
    Machine machine(space);
    const Serving serving(machine);
    add_hook<1>(), add_hook<2>(), add_hook<3>(), add_hook<4>();
    HotPlug hot_plug(machine, space,
                     {.inserted = [](const auto &) { told += "inserted\n"; },
                      .outcome = [](const auto &) { return ""; }});
    const auto card = [&](RoutingId id, std::uint32_t vendor_and_device) {
        plug(id, config_bytes({.id = id, .dwords = {{pci::VENDOR_ID, vendor_and_device}}}, false));
    };
    const std::string gone = "3 01:00.0 2: 01:00.0=0 02:00.0-\n4 01:00.0 2: 01:00.0=0\n";
    const std::string come = "1 01:00.0 2: 01:00.0=0\ninserted\n2 01:00.0 2: 01:00.0=0 02:00.0=";
    // An event's function and the bridges above it; without a function, events have been lost.
    const std::tuple<std::function<void()>, std::vector<RoutingId>, std::string> rows[] = {
        {[] {}, {CARD, SWITCH, PORT}, ""},
        {[&] { unplug(CARD); }, {CARD, SWITCH, PORT}, gone},
        {[&] { card(CARD, 0x0001'1234); }, {CARD, SWITCH, PORT}, come + "1\n"},
        {[&] { card(CARD, 0x0002'1234); }, {CARD, SWITCH, PORT}, gone + come + "2\n"},
        {[&] { card(CARD, 0xFFFF'FFFF); }, {CARD, SWITCH, PORT}, gone},
        {[&] { card(CARD, 0x0003'1234); }, {CARD, SWITCH, PORT}, come + "3\n"},
        {[&] {
             plug("2.1:0");
             replace(at(2, 1), "physfn", "../0000:02:00.0");
         },
         {at(2, 1), SWITCH, PORT},
         ""},
        {[&] {
             unplug(CARD), unplug(at(2, 1)), card(at(3), 0x0004'1234);
             poke(SWITCH, pci::SECONDARY_BUS_NUMBER, "\3\3");
         },
         {at(3), SWITCH, PORT},
         gone + "1 01:00.0 3: 01:00.0=0\ninserted\n2 01:00.0 3: 01:00.0=0 03:00.0=4\n"},
        {[&] { unplug(SWITCH); }, {SWITCH, PORT}, "3 00:01.0 1: 01:00.0- 03:00.0-\n4 00:01.0 1:\n"},
        {[&] { plug("64.0:0"); }, {at(64)}, "inserted\n2 40:00.0 64: 40:00.0=0\n"},
        {[&] { unplug(at(64)), plug("65.0:0"); },
         {},
         "inserted\n2 41:00.0 65: 40:00.0- 41:00.0=0\n"
         "3 40:00.0 64: 40:00.0- 41:00.0=0\n4 40:00.0 64: 41:00.0=0\n"}};
    for (const auto &[happens, path, expected] : rows) {
        told.clear();
        happens();
        if (path.empty())
            hot_plug.take_all();
        else
            hot_plug.take(
                {.added = true, .id = path[0], .bridges = {path.begin() + 1, path.end()}});
        hot_plug.settle(HotPlug::Clock::now() + EventGroups::LONGEST);
        EXPECT_EQ(told, expected);
    }
    forget_hooks();
}

// The card has the size that its port had when it came, before a module lowered the port to 128
// bytes. In the other rows the module leaves 512, and the kernel lowers the port; or the card fits;
// or another port, which is lower still, claims the bus too.
TEST_F(HotPlugs, BringFunctionsBelowPortsThatModulesHaveLowered) {
    constexpr RoutingId PORT = at(0, 1), CARD = at(1);
    const struct {
        std::uint16_t module;
        char card, port, after;
        const char *other = "";
    } rows[] = {{0, 0x40, 0, 0},
                {2 << 5, 0x40, 0, 0x40},
                {0, 0, 0, 0},
                {1 << 5, 0x40, 0x20, 0, "0.2:4>1-1=2 "}};
    for (const auto &[module, card, port, after, other] : rows) {
        plug(std::string(other) + "0.1:4>1-1=2 1.0:0=2");
        poke(PORT, DEVCTL_AT, "\x40");
        LiveSpace space(0, LiveSpace::Mode::READ_AND_WRITE, sysfs.folder());
        Machine machine(space);
        const Serving serving(machine);
        plug("1.0:0=2");
        poke(CARD, DEVCTL_AT, {&card, 1});
        EXPECT_EQ(admit_payload(*machine.find(PORT), module), PCI_OK);
        keep_payloads_in_bounds();
        poke(PORT, DEVCTL_AT, {&port, 1});
        HotPlug hot_plug(machine, space, {[](const auto &) {}, [](const auto &) { return ""; }});
        hot_plug.take({.added = true, .id = CARD, .bridges = {PORT}});
        hot_plug.settle(HotPlug::Clock::now() + EventGroups::LONGEST);
        EXPECT_EQ(read(sysfs.file(CARD, "config"))[DEVCTL_AT], after);
    }
}

TEST_F(HotPlugs, KeepRegistersAsLongAsTheyCannotHaveChanged) {
    constexpr RoutingId CARD = at(1);
    constexpr unsigned CONSTANT = PCIE_AT + pci::DEVCAP, SETTING = DEVCTL_AT;
    plug("1.0:0");
    LiveSpace space(0, LiveSpace::Mode::READ_AND_WRITE, sysfs.folder());
    std::uint32_t value = 0;
    space.read(CARD, pci::IDS, 4, value);
    // Another program has just set both registers to the row's number, and then something happens.
    const struct {
        std::function<void()> happens;
        unsigned constant, setting;
    } rows[] = {{[] {}, 0, 0},
                {[] {}, 0, 0},
                {[&] { space.look_again(); }, 0, 2},
                {[&] { space.write(CARD, SETTING, 2, 9); }, 0, 9},
                {[&] { space.rest(); }, 0, 4},
                {[] {}, 0, 5},
                {[&] { poke(CARD, pci::DEVICE_ID, "1"), space.read(CARD, 0, 4, value); }, 6, 6},
                {[&] { space.forget(CARD), space.look_again(); }, 7, 7},
                {[&] { poke(CARD, SETTING, "\xFF\xFF"), space.look_again(); }, 7, 0xFFFF},
                {[] {}, 7, 9}};
    for (char number = 0; const auto &row : rows) {
        poke(CARD, CONSTANT, {&number, 1}), poke(CARD, SETTING, {"\0\0", 2});
        poke(CARD, SETTING, {&number, 1});
        row.happens();
        EXPECT_EQ(space.recall(CARD, CONSTANT, 1, Changes::NEVER, value), PCI_OK);
        EXPECT_EQ(value, row.constant) << int{number};
        EXPECT_EQ(space.recall(CARD, SETTING, 2, Changes::BY_WRITES, value), PCI_OK);
        EXPECT_EQ(value, row.setting) << int{number};
        ++number;
    }
}

// Not all files can be open at a time.
TEST_F(HotPlugs, AreSeenThroughFilesThatAreOpenedAgain) {
    constexpr RoutingId MANY = 70, FIRST = at(0), LAST = at(MANY - 1);
    for (RoutingId bus = 0; bus < MANY; ++bus)
        plug(std::to_string(bus) + ".0:0");
    fail_calls(1, FOREVER, "getrlimit");
    ConfigFiles files(sysfs, ConfigFiles::Mode::READ);
    fail_calls(0);
    const auto read_it = [&](RoutingId id) {
        std::uint8_t byte = 0;
        return files.read(id, 0, &byte, 1);
    };
    for (const unsigned opens : {unsigned{MANY}, 2U * MANY}) {
        for (RoutingId bus = 0; bus < MANY; ++bus)
            EXPECT_EQ(read_it(at(bus)), 0);
        EXPECT_EQ(files.accesses().opens, opens);
    }
    plug("0.0:0 69.0:0");  // others; the first one's file is closed, and the last one's is open
    for (const RoutingId id : {FIRST, LAST}) {
        EXPECT_EQ(read_it(id), ENODEV);
        EXPECT_EQ(read_it(at(1)), 0);
        EXPECT_EQ(read_it(id), ENODEV);
        files.forget(id);
        EXPECT_EQ(read_it(id), 0);
    }
}

}  // namespace host::tests
