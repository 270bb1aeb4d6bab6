#include "module/base/buscfg_hooks.h"

#include <dlfcn.h>

#include <cstdlib>

#include "module/base/guards.h"
#include "module/base/log.h"
#include "platform/pci_access.h"

namespace enable_features {

buscfg_t **buscfg_pp = nullptr;

namespace {

pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;  // guards the look-up of "buscfg" only

template <auto member>
buscfg_hook_t hook_of(const buscfg_hooks_t &hooks) {
    return reinterpret_cast<buscfg_hook_t>(hooks.*member);
}

struct hook_kind_t {
    std::uint32_t kind;
    buscfg_hook_t (*hook)(const buscfg_hooks_t &hooks);
    void (*report)(pci_err_t outcome);
};

// A function that logs a registration. The format stands in the call, so that the compiler checks
// its arguments.
#define REPORT(format)                                                                             \
    [](pci_err_t outcome) { LOG_DEBUG(2, format, "install_buscfg_hooks", pci_strerror(outcome)); }

// The rows are in the order of the host's hook kinds, which is not the order of the members.
constexpr hook_kind_t hook_kinds[] = {
    {BUSCFG_HOOK_PRE_INSERTION, hook_of<&buscfg_hooks_t::pre_insertion>,
     REPORT("%s(), add pre insertion hook, %s")},
    {BUSCFG_HOOK_POST_INSERTION, hook_of<&buscfg_hooks_t::post_insertion>,
     REPORT("%s(), add post insertion hook, %s")},
    {BUSCFG_HOOK_PRE_REMOVAL, hook_of<&buscfg_hooks_t::pre_removal>,
     REPORT("%s(), add pre removal hook, %s")},
    {BUSCFG_HOOK_POST_REMOVAL, hook_of<&buscfg_hooks_t::post_removal>,
     REPORT("%s(), add post removal hook, %s")},
    {BUSCFG_HOOK_PRE_RESET, hook_of<&buscfg_hooks_t::pre_reset>,
     REPORT("%s(), add pre reset hook, %s")},
    {BUSCFG_HOOK_POST_RESET, hook_of<&buscfg_hooks_t::post_reset>,
     REPORT("%s(), add post reset hook, %s")},
    {BUSCFG_HOOK_PRE_RECONFIG, hook_of<&buscfg_hooks_t::pre_reconfig>,
     REPORT("%s(), add pre reconfig hook, %s")},
    {BUSCFG_HOOK_POST_RECONFIG, hook_of<&buscfg_hooks_t::post_reconfig>,
     REPORT("%s(), add post reconfig hook, %s")},
};

// Returns the host's variable, null when the host has none. The variable never moves, so it is
// looked up until it is found, and read without the lock first, then again under it.
buscfg_t **find_buscfg() {
    if (buscfg_t **found = __atomic_load_n(&buscfg_pp, __ATOMIC_ACQUIRE))
        return found;
    const mutex_guard guard(lock);
    if (buscfg_pp == nullptr) {
        auto *found = static_cast<buscfg_t **>(dlsym(RTLD_DEFAULT, "buscfg"));
        __atomic_store_n(&buscfg_pp, found, __ATOMIC_RELEASE);
        LOG_DEBUG(1, "Lookup of server sym buscfg %s", found != nullptr ? "ok" : "failed");
    }
    return buscfg_pp;
}

pci_err_t hand_over(buscfg_hook_reg_t *block) {
    buscfg_t **host_variable = find_buscfg();
    if (host_variable == nullptr)
        return PCI_ERR_NO_BUSCFG_SYMBOL;
    buscfg_t *object = *host_variable;
    if (object == nullptr)
        return PCI_ERR_NO_BUSCFG_OBJECT;
    return object->add_hook(block);
}

}  // namespace

pci_err_t install_buscfg_hooks(const buscfg_hooks_t *hooks) {
    for (const hook_kind_t &row : hook_kinds) {
        const buscfg_hook_t hook = row.hook(*hooks);
        if (hook == nullptr)
            continue;
        heap_ptr<buscfg_hook_reg_t> block(
            static_cast<buscfg_hook_reg_t *>(std::calloc(1, sizeof(buscfg_hook_reg_t))));
        if (block == nullptr)
            return PCI_ERR_NO_MEMORY;
        block->kind = row.kind;
        block->hook = hook;

        const pci_err_t outcome = hand_over(block.get());
        if (outcome == PCI_OK)
            static_cast<void>(block.release());  // the host owns the block from now on
        row.report(outcome);
        if (outcome != PCI_OK)
            return outcome;
    }
    return PCI_OK;
}

}  // namespace enable_features
