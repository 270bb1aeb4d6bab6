// Versions, options, and the start of the features in the order of their table.
#include "module/startup.h"

#include <getopt.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
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

// The whole text of a start, of a hook and of an operation, at every verbosity: the file "messages"
// has it, with a blank line between them. The second root port's endpoint has no request and no
// ECRC.
TEST_F(Startup, TellsEachStep) {
    auto all = functions("0.1:4>1-1=1 0.2:4>2-2=1 1.0:0>0-0=1701,36C00 2.0:0>0-0=1");
    all[0].aer = all[2].aer = GEN_CAP | CHK_CAP;
    serve(all);
    EXPECT_EQ(start_with("MPS=1.0.0:256\nECRC=all:+:="), 0U);
    std::string told = messages();
    call_bridge_hooks(BUSCFG_HOOK_POST_INSERTION, machine->bridge(at(0, 1)), 0, 0);
    told += '\n' + messages();
    module::_enable_aspm(machine->bridge(at(0, 1)));
    told += '\n' + messages();
    std::ifstream wanted(MESSAGES);
    EXPECT_EQ(told, expand({std::istreambuf_iterator<char>(wanted), {}}));
}

TEST_F(Startup, SaysWhenThereIsNoMemoryForTheArguments) {
    fail_calloc(1);
    EXPECT_EQ(start({"--config=x"}), 0U);
    EXPECT_TRUE(messages_but_debug().starts_with(
        expand("E0 Unable to scan the module's arguments, {12}\n")));
}

}  // namespace host::tests
