// Switches ASPM on and off, link by link. A link is named by the bridge above it. Of the components
// below it, the first function on the bus is programmed, or the first child bridge when the bus has
// no functions.
//
// No lock is taken and no state is kept: records of the bridge tree are read as they are found. The
// caller keeps the tree from changing, or accepts that a change meanwhile goes unnoticed.
#pragma once

#include <cstdint>

#include "platform/bridge.h"
#include "platform/capability.h"
#include "platform/types.h"

namespace enable_features {

// Writes `level` (ASPM_*) to Link Control, ASPM Control, through `cap` and changes no other field.
// Returns 0 or the code of the access.
pci_err_t set_link_aspm(pcie_cap_t *cap, std::uint32_t level);

// Enable or disable ASPM on the link below one bridge. Enabling writes the bridge, then the
// downstream component; when either write fails, the bridge's ASPM Control goes back to ASPM_NONE.
// Disabling writes the downstream component, if it can be written, then the bridge.
// Return 0; PCI_ERR_NOT_SUPPORTED for a host bridge, for a bridge that is no downstream port of PCI
// Express, and where an end of the link (disabling: the bridge) does not support ASPM;
// PCI_ERR_NO_DEVICE when there is nothing below (enabling only); else the code of the access.
pci_err_t _enable_aspm(bridge_rec *bridge);
pci_err_t _disable_aspm(bridge_rec *bridge);

// Do the same for `bridge` (may be null), for every bridge below it, and for its following siblings
// with theirs. Always return 0: a link that fails does not stop the others.
pci_err_t enable_aspm(bridge_rec *bridge);
pci_err_t disable_aspm(bridge_rec *bridge);

// Do the same for the link below the bridge at `bdf`, or the link above the function there;
// BDF_NONE means every link. Return the result of the operation, or PCI_ERR_NO_DEVICE when no
// bridge is found.
pci_err_t enable_aspm_feature(bdf_t bdf);
pci_err_t disable_aspm_feature(bdf_t bdf);

}  // namespace enable_features
