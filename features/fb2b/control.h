// Fast back-to-back transactions on conventional PCI buses, bus by bus. A bridge may generate them
// on its secondary bus only when every function on the bus and every bridge below can take them.
#pragma once

#include <cstdint>

#include "platform/bridge.h"
#include "platform/types.h"

namespace enable_features {

// The modes of fast_back_to_back().
constexpr int FB2B_TEST = 0;  // tells whether every function and child bridge is capable
constexpr int FB2B_ENABLE = 1;
constexpr int FB2B_DISABLE = -1;

// Runs one mode on one bridge: first the functions on its secondary bus, under its devs_lock, then
// its child bridges, then its own Bridge Control. Returns true when all of it succeeded; a disable
// also when it had to pass over something. Returns false, with nothing done, for a null bridge,
// another mode, or a bus without functions. An enable that fails takes everything back by a
// disable, which takes devs_lock for reading a second time where the first is still held.
bool fast_back_to_back(bridge_rec *bridge, int mode);

// Enable one bus if it is capable, or disable it. The outcome is only logged.
void _enable_fb2b(bridge_rec *bridge);
void _disable_fb2b(bridge_rec *bridge);

// Do the same for `first` (may be null), for every bridge below it, and for its following siblings
// with theirs. Always return 0. Links of the tree are followed without children_lock.
int enable_fb2b(bridge_rec *first);
int disable_fb2b(bridge_rec *first);

// Do the same for the secondary bus of the bridge at `bdf`, or the bus of the function there;
// BDF_NONE means every bus. Return 0 whatever happened on the buses; PCI_ERR_NO_DEVICE when no
// bridge is found.
int enable_fb2b_feature(bdf_t bdf);
int disable_fb2b_feature(bdf_t bdf);

}  // namespace enable_features
