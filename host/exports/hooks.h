// Calls the hooks that modules registered with "buscfg", in the order of their registration, on the
// calling thread and with no lock held; then keeps payload sizes in bounds.
#pragma once

#include "platform/buscfg.h"

namespace host {

// Calls the hooks of one kind: BUSCFG_HOOK_PRE_INSERTION, _POST_INSERTION, _PRE_REMOVAL or
// _POST_REMOVAL.
void call_bridge_hooks(std::uint32_t kind, bridge_rec *bridge, std::uint32_t value, int status);

// Calls the hooks of one kind: BUSCFG_HOOK_PRE_RESET or _POST_RESET.
void call_reset_hooks(std::uint32_t kind, std::uint32_t reset_type, bdf_t bdf, int status);

// Drops every registration and releases the blocks. Only tests call this, because modules are never
// unloaded.
void forget_hooks();

}  // namespace host
