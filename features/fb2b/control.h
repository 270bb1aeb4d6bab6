// Fast back-to-back transfers on conventional PCI buses, bus by bus. A bridge lets its secondary
// bus run them only when every function on the bus and every bridge below can take them.
#pragma once

#include <cstdint>

#include "platform/bridge.h"
#include "platform/types.h"

namespace enable_features {

// What fast_back_to_back() does.
constexpr int FB2B_TEST = 0;  // tells whether every function and child bridge is capable
constexpr int FB2B_ENABLE = 1;
constexpr int FB2B_DISABLE = -1;

// Runs one mode on one bridge: first the functions on its secondary bus, under its devs_lock, then
// its child bridges, then its own Bridge Control. True when all of it succeeded; a disable also
// when it had to pass over something. False, and nothing done, for a null bridge, another mode, or
// a bus without functions. An enable that fails takes everything back by a disable, which reads
// devs_lock a second time where the first is still held.
bool fast_back_to_back(bridge_rec *bridge, int mode);

// One bus: enable it if it is capable; disable it. The outcome is logged only.
void _enable_fb2b(bridge_rec *bridge);
void _disable_fb2b(bridge_rec *bridge);

// The same for `first` (may be null), for every bridge below it, and for its following siblings
// with theirs. Always 0. Links of the tree are followed without children_lock.
int enable_fb2b(bridge_rec *first);
int disable_fb2b(bridge_rec *first);

// The secondary bus of the bridge at `bdf`, or the bus of the function there; BDF_NONE: every bus.
// 0 whatever happened on the buses; PCI_ERR_NO_DEVICE when no bridge is found.
int enable_fb2b_feature(bdf_t bdf);
int disable_fb2b_feature(bdf_t bdf);

}  // namespace enable_features
