// Endpoints and root ports in the host's view of the hierarchy. Nothing here keeps state or takes a
// lock; every failure of the platform becomes the negative answer.
#pragma once

#include "platform/bridge.h"
#include "platform/types.h"

namespace enable_features {

// Tells whether `bdf` is an endpoint: a PCI Express function of type endpoint, legacy endpoint or
// RCiEP, which in ARI form must also carry the ARI capability. On true, and only then, stores the
// type through `port_type`, which may be null.
bool is_an_ep(bdf_t bdf, std::uint32_t *port_type);

// The topmost bridge above `bridge` that stands below a host bridge, or below nothing; `bridge`
// itself when it stands there. Never null; `bridge` must not be null. The port type is not looked
// at.
bridge_rec *find_rp(bridge_rec *bridge);

// The root port above `bdf`, or at it when it is one itself; null when the topmost bridge is no
// PCI Express root port, or there is none.
bridge_rec *find_root_port(bdf_t bdf);

// True when no walk up the tree goes past `bridge`: nothing or a host bridge is above it.
bool is_topmost(const bridge_rec *bridge);

}  // namespace enable_features
