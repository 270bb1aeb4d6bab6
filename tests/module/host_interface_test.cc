// What the module asks of its host by name.
#include "module/base/buscfg_hooks.h"

#include <bit>

#include "module/base/host_symbols.h"
#include "platform/bridge.h"
#include "tests/support/faults.h"
#include "tests/support/module_test.h"

namespace host::tests {

// A set with hooks of these kinds ("236"). Their addresses, never called, are their kinds.
static module::buscfg_hooks_t hooks_of(const std::string &kinds) {
    module::buscfg_hooks_t hooks = {};
    const auto fill = [&]<typename Hook>(Hook &hook, std::uint32_t kind) {
        if (kinds.find(std::to_string(kind)) != std::string::npos)
            hook = std::bit_cast<Hook>(std::uintptr_t{kind});
    };
    fill(hooks.pre_insertion, BUSCFG_HOOK_PRE_INSERTION);
    fill(hooks.post_insertion, BUSCFG_HOOK_POST_INSERTION);
    fill(hooks.pre_removal, BUSCFG_HOOK_PRE_REMOVAL);
    fill(hooks.post_removal, BUSCFG_HOOK_POST_REMOVAL);
    fill(hooks.pre_reset, BUSCFG_HOOK_PRE_RESET);
    fill(hooks.post_reset, BUSCFG_HOOK_POST_RESET);
    fill(hooks.pre_reconfig, BUSCFG_HOOK_PRE_RECONFIG);
    fill(hooks.post_reconfig, BUSCFG_HOOK_POST_RECONFIG);
    return hooks;
}

const char *const KIND_NAMES[] = {
    "",          "pre insertion", "post insertion", "pre removal",  "post removal",
    "pre reset", "post reset",    "pre reconfig",   "post reconfig"};

// A bus configuration object that notes the kinds it is given and refuses the n-th block.
class Hooks : public ModuleTest {
public:
    Hooks() { buscfg = &object; }
    ~Hooks() override { buscfg = hosts_own; }

protected:
    static pci_err_t add_hook(buscfg_hook_reg_t *block) {
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block->hook), block->kind);
        for (void *const *words : {block->host_links, block->host_words})
            EXPECT_TRUE(words[0] == nullptr && words[1] == nullptr);
        offered += std::to_string(block->kind);
        if (offered.size() == refused)
            return 19;
        std::free(block);  // from now on the host's, to free as it likes
        return 0;
    }

    buscfg_t *const hosts_own = buscfg;
    buscfg_t object = {add_hook};
    static inline std::string offered;
    static inline unsigned refused;
};

TEST_F(Hooks, AreRegisteredInTheHostsKindOrderUntilOneFails) {
    const struct {
        std::string kinds;
        unsigned refused, without_memory;  // the n-th; 0: none
        bool object;
        pci_err_t result;
        std::string offered, reported;
    } rows[] = {{"87654321", 0, 0, true, 0, "12345678", "12345678"},
                {"236", 0, 0, true, 0, "236", "236"},
                {"", 0, 0, true, 0, "", ""},
                {"236", 2, 0, true, 19, "23", "23"},
                {"236", 0, 0, false, 420, "", "2"},
                {"236", 0, 2, true, 12, "2", "2"}};
    for (const auto &row : rows) {
        reset();
        buscfg = row.object ? &object : nullptr;
        const module::buscfg_hooks_t hooks = hooks_of(row.kinds);
        std::string expected;
        for (const char &kind : row.reported) {
            const bool failed = &kind == &row.reported.back() && row.result != 12;
            expected += std::string("D2 install_buscfg_hooks(), add ") + KIND_NAMES[kind - '0'] +
                        " hook, {" + std::to_string(failed ? row.result : 0) + "}\n";
        }
        for (const char *lookup : {"D1 Lookup of server sym buscfg ok\n", ""}) {  // the first time
            offered.clear();
            refused = row.refused;
            fail_calloc(row.without_memory);
            EXPECT_EQ(module::install_buscfg_hooks(&hooks), row.result);
            EXPECT_EQ(offered, row.offered);
            EXPECT_EQ(messages(), expand((expected.empty() ? "" : lookup) + expected));
        }
    }
}

using BridgeLookups = ModuleTest;

TEST_F(BridgeLookups, PassThroughToTheHostAfterOneLookup) {
    serve({{.id = at(0, 1), .port = PORT_TYPE_ROOT_PORT, .secondary = 1}, {.id = at(1)}});
    bridge_rec *const port = machine->bridge(at(0, 1));
    ASSERT_NE(port, nullptr);
    for (unsigned i = 0; i < 2; ++i) {
        EXPECT_EQ(module::find_parent_bridge(nullptr, at(1)), port);
        EXPECT_EQ(module::find_parent_bridge(nullptr, BDF_NONE), port->parent);
        EXPECT_EQ(module::find_bridge_bdf(nullptr, at(0, 1)), port);
        EXPECT_EQ(module::find_bridge_bdf(nullptr, at(1)), nullptr);
    }
    EXPECT_EQ(messages(), "D1 Lookup of server sym find_parent_bridge ok\n"
                          "D1 Lookup of server sym find_bridge_bdf ok\n");
}

}  // namespace host::tests
