// MSI-X vector tables: in the functions' memory; for an image, which has none, in the host's own.
#pragma once

#include <mutex>
#include <unordered_map>
#include <vector>

#include "host/machine/machine.h"
#include "platform/capability.h"

namespace host {

// A function's table is always the same record, made when it is first asked for. Safe on any
// thread.
class MsixTables {
public:
    // An entry as a reset leaves it: zero, with its Mask Bit set.
    struct Vector {
        std::uint32_t address = 0;
        std::uint32_t upper_address = 0;
        std::uint32_t data = 0;
        std::uint32_t control = 1;  // bit 0: Mask Bit
    };

    struct Table {
        std::vector<Vector> vectors;  // of an image; empty: the device has them
        msix_table_t record{};
    };

    // Finds the table of a function whose Table Offset and Table BIR register reads `place`, with
    // `count` entries. `table` is set on success only. PCI_ERR_NO_DEVICE when the function is gone,
    // PCI_ERR_IO when its table cannot be mapped. Throws std::bad_alloc.
    pci_err_t find(const Function &function, std::uint32_t place, std::size_t count,
                   const msix_table_t *&table);

    // Marks the tables at that address as not mapped, because the functions there have been removed
    // and their memory is about to go. A look-up after the function has come back maps its table
    // again.
    void forget(RoutingId id);

private:
    std::mutex lock_;
    std::unordered_map<const Function *, Table> by_function_;
};

// Finds the vector table of the function at `bdf`, whose MSI-X capability is at `offset`: valid as
// long as its machine is served. `table` is set on success only; errors are those of reading the
// table's place, of MsixTables::find(), and PCI_ERR_NO_MEMORY.
pci_err_t find_msix_table(bdf_t bdf, unsigned offset, const msix_table_t *&table);

}  // namespace host
