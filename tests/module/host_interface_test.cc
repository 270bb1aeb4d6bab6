// The names that the module looks up in its host.
#include "module/base/buscfg_hooks.h"

#include <array>
#include <bit>

#include "module/base/host_symbols.h"
#include "platform/bridge.h"
#include "tests/support/faults.h"
#include "tests/support/module_test.h"

namespace host::tests {

// A set with hooks of these kinds ("236"). A hook's address, which is never called, is its kind.
static module::buscfg_hooks_t hooks_of(const std::string &kinds) {
    std::array<std::uintptr_t, 8> hooks = {5, 6, 7, 8, 1, 2, 3, 4};  // as its members stand
    for (std::uintptr_t &kind : hooks)
        kind = kinds.find(std::to_string(kind)) == std::string::npos ? 0 : kind;
    return std::bit_cast<module::buscfg_hooks_t>(hooks);
}

// A bus configuration object that notes the kinds of its hooks and refuses the n-th block.
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
    // The number of the block that is refused, that of the block without memory, and whether the
    // host has an object.
    const std::tuple<std::string, unsigned, unsigned, bool, pci_err_t, std::string> rows[] = {
        {"87654321", 0, 0, true, 0, "12345678"},
        {"236", 0, 0, true, 0, "236"},
        {"", 0, 0, true, 0, ""},
        {"236", 2, 0, true, 19, "23"},
        {"236", 0, 0, false, 420, ""},
        {"236", 0, 2, true, 12, "2"}};
    for (const auto &[kinds, nth_refused, without_memory, has_object, result, taken] : rows) {
        reset();
        buscfg = has_object ? &object : nullptr;
        const module::buscfg_hooks_t hooks = hooks_of(kinds);
        for (const bool first : {true, false}) {
            offered.clear();
            refused = nth_refused;
            fail_calloc(without_memory);
            log_handle_t *const handle = std::exchange(pci_dbg, first ? pci_dbg : nullptr);
            EXPECT_EQ(module::install_buscfg_hooks(&hooks), result);
            pci_dbg = handle;
            EXPECT_EQ(offered, taken);
            EXPECT_EQ(messages().starts_with("D1 Lookup of server sym buscfg ok\n"),
                      first && !kinds.empty());
        }
    }
}

}  // namespace host::tests
