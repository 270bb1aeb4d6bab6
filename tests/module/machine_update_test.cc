// A machine whose functions come and go.
#include <atomic>
#include <thread>

#include "features/aspm/link_control.h"
#include "host/base/address.h"
#include "host/watch/event_groups.h"
#include "platform/pci_access.h"
#include "tests/support/module_test.h"
#include "topology/bridge_links.h"

namespace host::tests {

using Ids = std::vector<RoutingId>;

// Behind root port 1 is a switch, or another device; no bridge leads to bus 7.
class MachineUpdate : public ModuleTest {
protected:
    MachineUpdate() {
        serve(
            functions("0.1:4>1-3 0.2:4>5-5 0.3:4>6-6 1.0:5>2-3 2.0:6>3-3 3.0:0 6.0:0 6.1:0 7.0:0"));
        machine->image.set_filter([this, reads = 0](ImageAccess &access) mutable {
            if (what == 'o' && access.id == at(1) && access.offset == 0x0C)
                access.value = 0;  // header type
            // These bytes include Subordinate Bus Number, which the faults change.
            if (access.id == at(0, 3) && access.offset == 0x18)
                access.value += what == 'w' ? 1U << 16 : what == 'b' ? -(1U << 16) : 0;
            return what == 'g' && access.id == at(1) && ++reads > 8 ? 19U : 0U;
        });
    }

    // Returns the bridges as modules see them, with the functions on their buses.
    static std::string tree(bridge_rec *bridge = find_parent_bridge(nullptr, BDF_NONE)) {
        std::string text = bdf_text(bridge->bdf).substr(0, 5) + "( ";
        for (const bdf_t &bdf : enable_features::functions_below(bridge))
            text += bdf_text(enable_features::load(bdf)) + " ";
        for (bridge = enable_features::first_child(bridge); bridge;
             bridge = enable_features::next_sibling(bridge))
            text += tree(bridge);
        return text + ")";
    }

    std::atomic<char> what = ' ';  // other device, wider or bad bridge, gone while it is read
};

TEST_F(MachineUpdate, ShowsWhatIsThereInTheRecordsThatItHad) {
    const Ids all = {at(1), at(2), at(3)};
    const std::string port = "02:00.0 02:00( 03:00.0 )", whole = "01:00.0 01:00( " + port + ")";
    const std::string stay = "06:00.0 06:01.0 ";
    const std::tuple<Ids, Ids, char, std::string, std::string> rows[] = {
        {all, {}, ' ', "", stay},
        {{}, all, ' ', whole, stay},
        {all, {at(1)}, 'o', "01:00.0 ", stay},
        {{at(1)}, all, 'g', port, stay},
        {all, all, 'b', whole, ""},
        {all, all, 'w', whole, stay + "07:00.0 "},
        {all, all, 'b', whole, ""},
        {all, all, ' ', whole, stay}};
    const bridge_rec *const record = machine->bridge(at(2));
    for (const auto &[gone, come, how, port_1, port_3] : rows) {
        what = how;
        machine->machine->update(gone, come);
        EXPECT_EQ(tree(), "00:00( 00:01.0 00:02.0 00:03.0 00:01( " + port_1 + ")00:02( )00:03( " +
                              port_3 + "))");
        EXPECT_EQ(machine->bridge(at(2)) == record, port_1 == whole);
    }
    EXPECT_EQ(cached_param_get_sec_busnum(find_parent_bridge(nullptr, at(0)), 0), 0);
    EXPECT_EQ(machine->warnings,
              "00:03.0: bus numbers 00->06-05: the subordinate bus comes before the secondary bus; "
              "nothing is taken to be below this bridge, and payload sizes of paths are not "
              "written to it\n");
}

// Milliseconds after the first event. One slot never becomes quiet, and the bridge above it takes
// its events over; another one becomes quiet.
TEST_F(MachineUpdate, IsDueWhenASlotIsQuietOrHasNotBeenForLong) {
    EventGroups groups;
    const auto time = [](int ms) {
        return EventGroups::Clock::time_point{std::chrono::milliseconds{ms}};
    };
    for (int ms = 0; ms < 2000; ms += 90) {
        const bool above = ms >= 1000;
        groups.add(machine->bridge(above ? at(0, 1) : at(2)), at(above ? 1 : 3), time(ms));
        EXPECT_EQ(groups.due(), time(std::min(ms + 100, 2000)));
        EXPECT_FALSE(groups.take(time(std::min(ms + 99, 1999))));
    }
    groups.add(machine->bridge(at(0, 2)), std::nullopt, time(1950));
    const auto slot = groups.take(time(2000));
    EXPECT_EQ(slot->bridge, machine->bridge(at(0, 1)));
    EXPECT_EQ(slot->named, (std::set{at(1), at(3)}));
    EXPECT_FALSE(groups.take(time(2049)));
    EXPECT_EQ(groups.take(time(2050))->named, std::set<RoutingId>{});
    EXPECT_FALSE(groups.due());
}

// The device enables one at 01:02.0 and at 01:03.0, where a bridge is instead.
TEST_F(MachineUpdate, LeavesVirtualFunctionsOut) {
    serve({{.id = at(0, 1), .port = 4, .secondary = 1, .subordinate = 2},
           {.id = at(1),
            .dwords = {{0x100, 1U << 16 | EXT_CAPID_SRIOV},
                       {0x108, 1},
                       {0x110, 2},
                       {0x114, 8U << 16 | 16},
                       {0x118, 0xABCDU << 16}}},
           {.id = at(1, 2)},
           {.id = at(1, 3), .port = 5, .secondary = 2}});
    EXPECT_EQ(tree(), "00:00( 00:01.0 00:01( 01:00.0 01:03.0 01:03( )))");
    std::uint16_t vendor = 0;
    EXPECT_EQ(pci_device_read_vid(at(1, 2), &vendor), 19U);
    const Function &known = *machine->machine->known(at(1, 2));
    EXPECT_EQ(std::tie(known.physical, known.vendor, known.device),
              (std::tuple{std::optional(at(1)), 0x1234, 0xABCD}));
}

using MachineUpdateThreads = MachineUpdate;

TEST_F(MachineUpdateThreads, FindWhatStaysAllTheTime) {
    const Ids all = {at(0, 2), at(1), at(2), at(3)};
    observe_log({});
    std::atomic<bool> done = false;
    const std::jthread reader([&] {
        while (!done) {
            EXPECT_NE(pci_device_find(2, ANY_VENDOR, ANY_DEVICE, ANY_CLASS), BDF_NONE);
            EXPECT_EQ(cached_param_get_sec_busnum(find_parent_bridge(nullptr, at(7)), 0), 7);
            enable_features::enable_aspm_feature(BDF_NONE);
            EXPECT_NE(tree().find(tree(find_bridge_bdf(nullptr, at(0, 3)))), std::string::npos);
        }
    });
    for (unsigned round = 0; round < 50; ++round) {
        machine->machine->update(all, {});
        what = round % 2 ? 'o' : ' ';
        machine->machine->update({}, all);
    }
    done = true;
}

}  // namespace host::tests
