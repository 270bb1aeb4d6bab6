// The plug-in as a host loads it. This program links none of the module's code.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "host/access/serve.h"
#include "host/server/hooks.h"
#include "host/server/log.h"
#include "platform/module.h"
#include "tests/support/test_machine.h"

namespace host::tests {
namespace {

TEST(Plugin, LoadsAndConfiguresAMachine) {
    void *plugin = dlopen(PLUGIN_FILE, RTLD_NOW);
    ASSERT_NE(plugin, nullptr) << dlerror();
    const auto version =
        reinterpret_cast<decltype(&server_mod_version)>(dlsym(plugin, "server_mod_version"));
    const auto init =
        reinterpret_cast<decltype(&server_mod_init)>(dlsym(plugin, "server_mod_init"));
    ASSERT_TRUE(version && init);
    EXPECT_EQ(version(), 3U);

    TestMachine machine({{.id = at(0, 1),
                          .port = PORT_TYPE_ROOT_PORT,
                          .secondary = 1,
                          .payload_cap = 2,
                          .aer = GEN_CAP | CHK_CAP},
                         {.id = at(1), .payload_cap = 1, .aer = GEN_CAP | CHK_CAP}});
    serve(&*machine.machine);
    open_log(-1, true);
    const std::filesystem::path features =
        std::filesystem::temp_directory_path() / ("plugin-test-" + std::to_string(getpid()));
    std::ofstream(features) << "MPS=all:max\nECRC=1.0.0:+:-\n";
    const std::string option = "--config=" + features.string();
    const char *const argv[] = {option.c_str()};
    const mod_init_args_t args = {{3, 0}, {3, 0}, 1, argv};
    EXPECT_EQ(init(&args), 0U);
    std::filesystem::remove(features);

    EXPECT_EQ(machine.aer(at(1)), GEN_CAP | CHK_CAP | GEN_ON);
    EXPECT_EQ(machine.aer(at(0, 1)), GEN_CAP | CHK_CAP);
    for (const RoutingId id : {at(0, 1), at(1)})
        EXPECT_EQ(machine.get(id, DEVCTL_AT, 2), 1U << 5);
    // The hooks work: what a reset loses comes back.
    machine.image.reset(at(1));
    call_reset_hooks(BUSCFG_HOOK_POST_RESET, RESET_TYPE_FLR, at(1), 0);
    call_bridge_hooks(BUSCFG_HOOK_POST_INSERTION, machine.bridge(at(0, 1)), 0, 0);
    EXPECT_EQ(machine.get(at(1), DEVCTL_AT, 2), 1U << 5);
    EXPECT_EQ(machine.aer(at(1)), GEN_CAP | CHK_CAP | GEN_ON);
    serve(nullptr);
    forget_hooks();
}

}  // namespace
}  // namespace host::tests
