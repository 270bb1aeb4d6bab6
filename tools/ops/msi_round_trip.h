// Shows that a function's MSI and MSI-X registers survive: save, disturb, restore, compare.
#pragma once

#include <iosfwd>

#include "platform/types.h"

namespace ops {

// Does so for each of the two capabilities that the function has and writes a line for each to
// `out`. Returns 0; PCI_ERR_NOT_SUPPORTED without either; PCI_ERR_IO when something differs
// afterwards; else the code of the first failure.
pci_err_t msi_round_trip(bdf_t bdf, std::ostream &out);

}  // namespace ops
