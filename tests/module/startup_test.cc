// Versions, options, and the start of the features in the order of their table.
#include "module/startup.h"

#include <getopt.h>

#include <cstdlib>
#include <sstream>

#include "features/aspm/link_control.h"
#include "host/exports/hooks.h"
#include "platform/log.h"
#include "tests/support/faults.h"
#include "tests/support/module_test.h"

namespace host::tests {

const std::string NOTHING_CONFIGURED =
    "E1 Fast back-to-back Transfers initialization failed, {48}\n"
    "E1 ASPM initialization failed, {48}\n"
    "I1 Max Payload Size initialization, {2}\n"
    "I1 ECRC Generation and Checking initialization, {2}\n"
    "I1 Enable Features module init, {0}\n";

using Startup = ModuleTest;

TEST_F(Startup, RefusesLibrariesAndServersOlderThan3_0) {
    const std::string refused = " versions < 3.0 are not compatible with server enable features "
                                "module v3.0\nE0 Enable Features module init failed, {418}\n";
    const std::tuple<version_pair_t, version_pair_t, pci_err_t, std::string> rows[] = {
        {{9, 0}, {2, 65535}, 418, "E0 library" + refused},
        {{2, 65535}, {2, 65535}, 418, "E0 library" + refused},
        {{2, 65535}, {3, 0}, 418, "E1 server" + refused},
        {{3, 0}, {3, 0}, 0, NOTHING_CONFIGURED},
        {{3, 1}, {4, 0}, 0, NOTHING_CONFIGURED}};
    EXPECT_EQ(module::mod_version(), 0x00000003U);
    for (const auto &[server, library, result, log] : rows) {
        const char *const argv[] = {"--config="};
        const mod_init_args_t args = {server, library, 1, result ? argv : nullptr};
        EXPECT_EQ(module::start_module(&args), result);
        EXPECT_EQ(messages(), expand(log));
        log_handle_t *const slog = std::exchange(pci_slog, nullptr);
        EXPECT_EQ(module::start_module(&args), result);
        pci_slog = slog;
    }
}

TEST_F(Startup, ParsesEveryConfigOptionInOrderAndIgnoresTheRest) {
    const std::string a = file("A=1", "a.cfg"), b = file("B=1", "b.cfg");
    const auto parse = [](const std::string &name, const std::string &keyword) {
        return "I0 ++ Feature Config file '" + name + "' parse start ++\n" +
               "W0 Unknown feature parameter '" + keyword + "', ignoring\n" +
               "I0 ++ Feature Config file '" + name + "' parse end ++\n" +
               "D3 parse_feature_config(), {0}\n";
    };
    // The module must not depend on how the host has used getopt_long().
    char program[] = "hoplar", flags[] = "-vvv";
    char *const hosts_own[] = {program, flags};
    ASSERT_EQ(::setenv("POSIXLY_CORRECT", "1", 1), 0);
    const std::string A = parse("a.cfg", "A"), B = parse("b.cfg", "B");
    const std::string no_path = "E0 No config file parameter provided\n"
                                "D3 parse_feature_config(), {22}\n";
    const std::pair<std::vector<std::string>, std::string> rows[] = {
        {{}, ""},
        {{"--config=" + a, "--config", b}, A + B},
        {{"--config=" + a, "--config=" + a}, A + A},
        {{"-v", "stray", "--nonsense", "-x", "--config=" + b, "stray"}, B},
        {{"--config=", "--config=" + a}, no_path + A},
        {{"--config=" + a, "--config"}, A},
        {{"--", "--config=" + a}, ""}};
    for (const auto &[args, log] : rows) {
        std::ostringstream echo;
        for (std::size_t i = 0; i < args.size(); ++i)
            echo << "D1 argv[" << i << "] = " << bare(args[i]) << '\n';
        EXPECT_EQ(::getopt(2, hosts_own, "v"), 'v');
        EXPECT_EQ(start(args), 0U);
        optind = 0;
        EXPECT_EQ(messages(), expand(echo.str() + log + NOTHING_CONFIGURED));
    }
}

// The whole text of a start, of a hook and of an operation, at every verbosity. The second root
// port's endpoint has no request and no ECRC.
TEST_F(Startup, TellsEachStep) {
    const std::string start = R"(D1 argv[0] = --config=features.cfg
I0 ++ Feature Config file 'features.cfg' parse start ++
D3 is_an_ep(B1:D0:F0, (nil)=-1), T
D3 is_an_ep(B0:D1:F0, entry=0), F
D3 is_an_ep(B0:D2:F0, entry=0), F
D3 is_an_ep(B1:D0:F0, entry=0), T
D3 find_rp(B0:D1:F0) returns B0:D1:F0
D2 init_rp_mps_max() start ...
D1 Lookup of server sym find_bridge_bdf ok
D3 find_rp_mps(B0:D1:F0, entry=4294967295)
D3 mps_read_max_capable(entry, B0:D1:F0) returns 256
D3 find_rp_mps, path_max updated from 4294967295 to 256 for bridge B0:D1:F0
D3 mps_read_max_capable((nil), B1:D0:F0) returns 256
D3 init_rp_mps_max, B0:D1:F0, path_max = 256
D3 init_rp_mps_max(), add_rp_entry(B0:D1:F0, 256), {0}
D3 find_rp_mps(B0:D2:F0, entry=4294967295)
D3 mps_read_max_capable(entry, B0:D2:F0) returns 256
D3 find_rp_mps, path_max updated from 4294967295 to 256 for bridge B0:D2:F0
D3 mps_read_max_capable((nil), B2:D0:F0) returns 256
D3 init_rp_mps_max, B0:D2:F0, path_max = 256
D3 init_rp_mps_max(), add_rp_entry(B0:D2:F0, 256), {0}
D2 init_rp_mps_max() end, {0}
D3 find_rp_entry(entry=B0:D1:F0) returns entry
D3 ep_list_once_init, new entry for B1:D0:F0 added
D3 is_an_ep(B2:D0:F0, entry=0), T
D3 find_rp(B0:D2:F0) returns B0:D2:F0
D3 find_rp_entry(entry=B0:D2:F0) returns entry
D3 ep_list_once_init, new entry for B2:D0:F0 added
I2 Add record 'MPS=1.0.0:256', {0}
D3 Add/update ECRC entry for B0:D1:F0, gen=1, chk=0, {0}
D3 Add/update ECRC entry for B0:D2:F0, gen=1, chk=0, {48}
D3 Add/update ECRC entry for B1:D0:F0, gen=1, chk=0, {0}
D3 Add/update ECRC entry for B2:D0:F0, gen=1, chk=0, {48}
I2 Add record 'ECRC=all:+:=', {0}
I0 ++ Feature Config file 'features.cfg' parse end ++
D3 parse_feature_config(), {0}
E1 Fast back-to-back Transfers initialization failed, {48}
E1 ASPM initialization failed, {48}
D1 Lookup of server sym buscfg ok
D2 install_buscfg_hooks(), add post insertion hook, {0}
D2 install_buscfg_hooks(), add pre removal hook, {0}
D2 install_buscfg_hooks(), add post reset hook, {0}
I1 mps_init, path max for B1:D0:F0 is 256
D3 mps_set_hierarchy(upstream B0:D1:F0, 256)
I2 mps_write_mps(entry, B0:D1:F0, 256), MPS changed to 256
D3 mps_write_mps(entry, B0:D1:F0, 256), {0}
D3 find_rp_entry(entry=B0:D1:F0) returns entry
D3 is_an_ep(B1:D0:F0, (nil)=-1), T
I2 mps_write_mps((nil), B1:D0:F0, 256), MPS changed to 256
D3 mps_write_mps((nil), B1:D0:F0, 256), {0}
I1 set MPS value 256 for B1:D0:Fz, {0}
D2 mps_init, no processing required for mps_entry B2:D0:F0
I1 Max Payload Size initialization, {0}
D2 install_buscfg_hooks(), add post insertion hook, {0}
I2 B0:D1:F0 ECRC generation enabled
I2 B1:D0:F0 ECRC generation enabled
I1 ECRC Generation and Checking initialization, {0}
I1 Enable Features module init, {0}
)";
    const std::string inserted =
        R"(W0 ** post_insertion_mps_enable(B0:D1:F0, 0, {0}), HOTPLUG NOT CURRENTLY SUPPORTED **
D3 ecrc_find_entry(B1:D0:F0) returns entry
I2 B1:D0:F0 ECRC generation enabled already
)";
    const std::string link = R"(D2 calc_exit_latency(B0:D1:F0, B1:D0:F0, 1, entry=4000), {0}
D2 calc_exit_latency(B0:D1:F0, B1:D0:F0, 2, entry=64000), {0}
D2 acceptable_ep_latency(B0:D1:F0, 1)
D2 acceptable_ep_latency(B0:D1:F0, 1) returns 4294967295 for EP device B1:D0:F0
D2 acceptable_ep_latency(B0:D1:F0, 2)
D2 acceptable_ep_latency(B0:D1:F0, 2) returns 2000 for EP device B1:D0:F0
D2 find_aspm_level(), L0s/L1 exit latencies = 4000/64000, L0s/L1 acceptable latencies = 4294967295/2000
D2 find_aspm_level(B0:D1:F0, 3, B1:D0:F0, 3), aspm = 1
I1 _enable_aspm() on PCIe link for bridge B0:D1:F0, {0}
)";
    auto all = functions("0.1:4>1-1=1 0.2:4>2-2=1 1.0:0>0-0=1701,36C00 2.0:0>0-0=1");
    all[0].aer = all[2].aer = GEN_CAP | CHK_CAP;
    serve(all);
    EXPECT_EQ(start_with("MPS=1.0.0:256\nECRC=all:+:="), 0U);
    EXPECT_EQ(messages(), expand(start));
    call_bridge_hooks(BUSCFG_HOOK_POST_INSERTION, machine->bridge(at(0, 1)), 0, 0);
    EXPECT_EQ(messages(), expand(inserted));
    module::_enable_aspm(machine->bridge(at(0, 1)));
    EXPECT_EQ(messages(), expand(link));
}

TEST_F(Startup, SaysWhenThereIsNoMemoryForTheArguments) {
    fail_calloc(1);
    EXPECT_EQ(start({"--config=x"}), 0U);
    EXPECT_TRUE(messages_but_debug().starts_with(
        expand("E0 Unable to scan the module's arguments, {12}\n")));
}

}  // namespace host::tests
