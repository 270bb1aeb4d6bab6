// A host that exports none of the names that the module looks up: this program is linked without
// them.
#include "module/base/buscfg_hooks.h"
#include "module/base/host_symbols.h"
#include "tests/support/module_test.h"

namespace host::tests {

using HostWithoutExports = ModuleTest;

TEST_F(HostWithoutExports, IsAskedAgainEachTime) {
    enable_features::buscfg_hooks_t hooks = {};
    hooks.post_insertion = [](bridge_rec *, std::uint32_t, int) {};
    hooks.post_reset = [](std::uint32_t, bdf_t, int) {};
    for (unsigned i = 0; i < 2; ++i) {
        EXPECT_EQ(enable_features::install_buscfg_hooks(&hooks), 417U);
        EXPECT_EQ(enable_features::find_parent_bridge(nullptr, at(1)), nullptr);
        EXPECT_EQ(enable_features::find_bridge_bdf(nullptr, at(1)), nullptr);
        EXPECT_EQ(messages(), expand("D1 Lookup of server sym buscfg failed\n"
                                     "D2 install_buscfg_hooks(), add post insertion hook, {417}\n"
                                     "D1 Lookup of server sym find_parent_bridge failed\n"
                                     "D1 Lookup of server sym find_bridge_bdf failed\n"));
    }
}

}  // namespace host::tests
