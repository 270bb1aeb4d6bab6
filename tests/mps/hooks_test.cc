// The MPS hooks, after start-up has programmed a machine.
#include <atomic>
#include <cstdlib>
#include <ctime>
#include <thread>

#include "host/exports/hooks.h"
#include "platform/buscfg.h"
#include "platform/log.h"
#include "tests/mps/mps_test.h"

namespace host::tests {

using MpsHooks = MpsTest;

TEST_F(MpsHooks, GiveFunctionsTheirSizeBackAfterResets) {
    const std::string to_4 = "02:01.0 04:00.5 04:10.2 ", to_3 = "=256 00:01.0 01:00.0 02:00.0 ";
    const std::string repaired = "03:01.2 04:00.0 ";  // by the host: above their ports otherwise
    const std::string all = to_3 + "03:00.0 03:00.1 " + to_4 + repaired;
    const std::string both_set = "I1 set MPS value 256 for B3:D0:Fz, {0}\n"
                                 "I1 set MPS value 256 for B4:D0:Fz, {0}\n";
    const std::string is_rp = "D2 find_root_port(BDF), entry (BDF)\nD2 HOOK, bdf_is_rp: T\n";
    const std::string is_none = "D2 HOOK, bdf_is_rp: F\n";
    const std::string nothing_above = "D2 find_root_port(BDF), (nil) (B255:D0:F255)\n"
                                      "W0 ** CALL, NO UPSTREAM PORT ???\n";
    const std::string never = "I2 HOOK, MPS for EP BDF was never set or is invalid. Leave default "
                              "MPS\n";
    const AccessFilter broken = fail(writes_to(at(3), DEVCTL_AT), 1);
    const struct {
        std::uint32_t type;
        bdf_t bdf;
        int status;
        std::string writes, messages;
        AccessFilter fault = {};
    } rows[] = {{3, at(3), 5, "", "W0 HOOK, skipping reset type 3\n"},
                // Resets of one function.
                {2, at(3, 0, 1), 19, "=256 03:00.1 ", "D2 CALL, mps_write_mps(), {0}\n"},
                {2, ari(ari_at(4, 130)), 0, "=256 04:10.2 ", "D2 CALL, mps_write_mps(), {0}\n"},
                {2, at(3), 0, "=256 03:00.0 ", "D2 CALL, mps_write_mps(), {5}\n", broken},
                {2, at(2, 0), 0, "", "W0 CALL, not an EP, why FLR ???\n"},
                {2, at(5), 0, "", never},
                {2, at(0, 4), 0, "", ""},
                {2, at(6), 0, "", ""},
                // Resets of one device.
                {1, at(3, 0, 1), 5, "=256 03:00.0 03:00.1 ",
                 "D2 CALL, mps_write_mps_all_funcs(B3:D0:F0, 256), {0}\n"},
                {1, ari(ari_at(4, 5)), 0, "=256 04:00.5 04:10.2 ",
                 "D2 CALL, mps_write_mps_all_funcs(B4:D0:F0, 256), {0}\n"},
                {1, at(3), 0, "=256 03:00.0 ",
                 "D2 CALL, mps_write_mps_all_funcs(B3:D0:F0, 256), {5}\n", broken},
                {1, at(5), 0, "", never},
                {1, at(3, 9), 0, "", ""},
                {1, at(7, 0, 2), 0, "", ""},
                // Resets of a hierarchy.
                {1, at(2, 1), 0, all, is_none + both_set},
                {1, at(1), 48, all, is_none + both_set},
                {1, at(0, 1), 0, all, is_rp + both_set},
                {1, at(0, 1), 0,
                 to_3 + "03:00.0 " + to_4 + "03:00.0 03:00.1 " + repaired + "03:00.0 ",  // twice
                 is_rp + replaced(both_set, "I1 set MPS value 256 for B3:D0:Fz, {0}",
                                  "E0 Unable to set MPS value 256 for B3:D0:Fz, {5}"),
                 broken},
                {1, at(0, 2), 0, "",
                 is_rp + "I2 HOOK, MPS on paths below RP BDF were never changed or are "
                         "invalid. Leave default MPS\n"},
                {1, at(6), 0, "", is_none},
                // Resets with no bridge above the function.
                {1, at(0, 4), 5, "", nothing_above},
                {1, at(0, 3), 0, "", nothing_above}};
    for (const auto &row : rows) {
        const std::string call =
            "HOOK(" + std::to_string(row.type) + ", BDF, {" + std::to_string(row.status) + "})";
        std::string expected = replaced("D2 CALL\n" + row.messages, "CALL", call);
        expected = replaced(expected, "HOOK", "post_reset_mps_enable");
        expected = expand(replaced(expected, "BDF", printed(row.bdf)));
        serve(TREE);
        EXPECT_EQ(start_with("MPS=3.0.0:256\nMPS=4.5:512"), 0U);
        for (const FunctionSpec &function : TREE)
            machine->image.write(function.id, DEVCTL_AT, 2, 4U << 5);
        messages();
        record(row.fault);
        call_reset_hooks(BUSCFG_HOOK_POST_RESET, row.type, row.bdf, row.status);
        EXPECT_EQ(writes(), row.writes);
        EXPECT_EQ(said({"post_reset", "set MPS", "find_root_port"}), expected);
        EXPECT_EQ(locked > 0, row.writes.starts_with(to_3)) << "for a hierarchy only";
        EXPECT_FALSE(is_locked(feature.list.lock));
    }
}

TEST_F(MpsHooks, OnlyReportHotPlug) {
    serve(TREE);
    EXPECT_EQ(start_with("MPS=all:max"), 0U);
    messages();
    record();
    call_bridge_hooks(BUSCFG_HOOK_POST_INSERTION, machine->bridge(at(2, 1)), 4000000000, 5);
    call_bridge_hooks(BUSCFG_HOOK_PRE_REMOVAL, machine->bridge(at(2, 1)), 0, 0);
    const std::string unsupported = "), HOTPLUG NOT CURRENTLY SUPPORTED **\n";
    EXPECT_EQ(messages(),
              expand("W0 ** post_insertion_mps_enable(B2:D1:F0, 4000000000, {5}" + unsupported +
                     "W0 ** pre_removal_mps_disable(B2:D1:F0, 0, {0}" + unsupported));
    EXPECT_EQ(locked + unlocked, 0U);
}

using MpsThreads = MpsTest;

// Hooks are called before, while and after they are registered. The functions of bus 2, which do
// not decide the size, lose it all the time; once the module has started, bridges below 00:02.0
// come and go at the same time. HOPLAR_THREADS_SECONDS in the environment makes the test last
// longer.
TEST_F(MpsThreads, CallTheHooksWhileStartUpPrograms) {
    auto all = functions("0.1:4>1-2=2 0.2:4>3-5=2 1.0:0>0-0=3 1.1:6>2-2=3 3.0:6>4-5=2 4.0:6>5-5=2");
    all.push_back({.id = at(5), .payload_cap = 3, .aer = GEN_CAP | GEN_ON});
    for (unsigned i = 0; i < 64; ++i)
        all.push_back({.id = ari_at(2, i), .payload_cap = 3});
    serve(all);
    const char *const seconds = std::getenv("HOPLAR_THREADS_SECONDS");
    const std::time_t end = std::time(nullptr) + (seconds ? std::atoi(seconds) : 1);
    bridge_rec *const bridges[] = {machine->bridge(at(0, 2)), machine->bridge(at(3)),
                                   machine->bridge(at(4))};
    const auto come_back = [&](bridge_rec *bridge) {
        machine->machine->insert(*bridge);
        call_bridge_hooks(BUSCFG_HOOK_POST_INSERTION, bridge, 0, 0);
        call_reset_hooks(BUSCFG_HOOK_POST_RESET, RESET_TYPE_BUS, bridge->bdf, 0);
    };
    std::atomic<bool> started = false;
    std::vector<std::jthread> threads;
    for (unsigned thread = 0; thread < 8; ++thread)
        threads.emplace_back([&, thread] {
            do
                for (unsigned i = 0; i < 64; ++i) {
                    machine->image.reset(ari_at(2, i));
                    const std::uint32_t type = (i + thread) % 2 ? RESET_TYPE_BUS : RESET_TYPE_FLR;
                    call_reset_hooks(BUSCFG_HOOK_POST_RESET, type, ari_at(2, i), 0);
                    if (i % 16 == thread)
                        call_reset_hooks(BUSCFG_HOOK_POST_RESET, RESET_TYPE_BUS, at(0, 1), 0);
                    call_bridge_hooks(BUSCFG_HOOK_POST_INSERTION, bridges[2], 0, 0);
                    if (!started)
                        continue;
                    machine->machine->remove(*bridges[(i + thread) % 3]);
                    machine->image.reset(at(5));
                    come_back(bridges[(i + thread) % 3]);
                }
            while (!started || std::time(nullptr) < end);
        });
    EXPECT_EQ(start_with("MPS=all:max\nECRC=all:+:+"), 0U);
    started = true;
    threads.clear();
    for (bridge_rec *const bridge : bridges)  // from the top
        come_back(bridge);
    for (const FunctionSpec &function : all)
        EXPECT_EQ(payload(function.id), 512U) << bdf_text(function.id);
    EXPECT_EQ(machine->aer(at(5)), GEN_CAP | GEN_ON);
}

}  // namespace host::tests
