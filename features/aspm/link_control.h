// ASPM switched on and off, link by link. A link is named by the bridge above it; of the devices
// below it, the first on the bus is programmed, or the first bridge below when the bus has none.
//
// No locks and no state: records of the bridge tree are read as they are found, so whoever calls
// these keeps the tree from changing, or accepts that a change meanwhile goes unnoticed.
#pragma once

#include <cstdint>

#include "platform/bridge.h"
#include "platform/capability.h"
#include "platform/types.h"

namespace enable_features {

// Writes `level` (ASPM_*) into the Link Control register behind `cap` and touches nothing else in
// it. 0 or the code of the access.
pci_err_t set_link_aspm(pcie_cap_t *cap, std::uint32_t level);

// The link below one bridge. Enabling writes the bridge, then the device; when either fails, the
// bridge goes back to level 0. Disabling writes the device, if there is one to write, then the
// bridge.
// 0; PCI_ERR_NOT_SUPPORTED for a host bridge, for what is no downstream port of PCI Express, and
// where an end of the link (disabling: the bridge) has no ASPM; PCI_ERR_NO_DEVICE when there is
// nothing below (enabling only); else the code of the access.
pci_err_t _enable_aspm(bridge_rec *bridge);
pci_err_t _disable_aspm(bridge_rec *bridge);

// The same for `bridge` (may be null), for every bridge below it, and for its following siblings
// with theirs. 0: a link that fails does not stop the others.
pci_err_t enable_aspm(bridge_rec *bridge);
pci_err_t disable_aspm(bridge_rec *bridge);

// The link below the bridge at `bdf`, or the link above the function there; BDF_NONE: every link.
// The result of the operation; PCI_ERR_NO_DEVICE when no bridge is found.
pci_err_t enable_aspm_feature(bdf_t bdf);
pci_err_t disable_aspm_feature(bdf_t bdf);

}  // namespace enable_features
