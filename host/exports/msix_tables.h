// MSI-X vector tables: in the functions' memory, or, as an image has none, tables of the host's
// own.
#pragma once

#include "host/machine/machine.h"
#include "platform/capability.h"

namespace host {

// The vector table of the function at `bdf`, whose MSI-X capability is at `offset`: always the same
// record, until serve() is called. Entries begin as hardware has them: all zero, masked. `table` is
// set on success only; an error is that of reading where the table is, PCI_ERR_IO when it is there
// and cannot be mapped, PCI_ERR_NO_MEMORY.
pci_err_t find_msix_table(bdf_t bdf, unsigned offset, const msix_table_t *&table);

// What was at that place has been removed, and its memory is about to go: from now on its records
// say that the table is not mapped, until it is looked up after the function has come back.
void forget_msix_tables(RoutingId id);

}  // namespace host
