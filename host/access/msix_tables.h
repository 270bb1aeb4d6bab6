// MSI-X vector tables. An image holds no device memory, so the host keeps a table of its own for
// each function that is asked for one.
#pragma once

#include "platform/capability.h"

namespace host {

// The vector table of the function at `bdf`, whose MSI-X capability is at `offset`: always the same
// one, until serve() is called. Entries begin as hardware has them: all zero, masked. `table` is
// set on success only; an error is that of reading the table's size.
pci_err_t find_msix_table(bdf_t bdf, unsigned offset, const msix_table_t *&table);

}  // namespace host
