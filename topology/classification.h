// Tells endpoints and root ports apart in the host's view of the hierarchy. Nothing here keeps
// state or takes a lock; every failure of the platform becomes the negative answer.
#pragma once

#include "platform/bridge.h"
#include "platform/types.h"

namespace enable_features {

// Returns true when `bdf` is an endpoint: a PCI Express function of type endpoint, legacy endpoint
// or RCiEP, which in ARI form must also carry the ARI capability. On true, and only then, stores
// the type through `port_type`, which may be null.
bool is_an_ep(bdf_t bdf, std::uint32_t *port_type);

// Returns the topmost bridge above `bridge`: the one that stands below a host bridge, or below
// nothing; `bridge` itself when it stands there. Never null; `bridge` must not be null. The port
// type is not checked.
bridge_rec *find_rp(bridge_rec *bridge);

// Returns the root port above `bdf`, or at `bdf` when it is one itself; null when the topmost
// bridge is no PCI Express root port, or when there is no such bridge.
bridge_rec *find_root_port(bdf_t bdf);

// Returns true when walks up the tree end at `bridge`: its parent is null or a host bridge.
bool is_topmost(const bridge_rec *bridge);

}  // namespace enable_features
