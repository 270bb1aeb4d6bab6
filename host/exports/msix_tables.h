// MSI-X vector tables: in the functions' memory, or, as an image has none, tables of the host's
// own.
#pragma once

#include <mutex>
#include <unordered_map>
#include <vector>

#include "host/machine/machine.h"
#include "platform/capability.h"

namespace host {

// Each function's table is always the same record, made when it is first asked for. Any thread.
class MsixTables {
public:
    // An entry as hardware has it after a reset: all zero, masked.
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

    // The table of a function whose Table Offset and Table BIR register reads `place`, with `count`
    // entries. `table` is set on success only. PCI_ERR_NO_DEVICE when the function has gone,
    // PCI_ERR_IO when its table cannot be mapped. Throws std::bad_alloc.
    pci_err_t find(const Function &function, std::uint32_t place, std::size_t count,
                   const msix_table_t *&table);

    // The functions that were at that place have been removed, and their memory is about to go:
    // from now on their records say that the table is not mapped, until it is looked up after the
    // function has come back.
    void forget(RoutingId id);

private:
    std::mutex lock_;
    std::unordered_map<const Function *, Table> by_function_;
};

// The vector table of the function at `bdf`, whose MSI-X capability is at `offset`: valid as long
// as its machine is served. `table` is set on success only; an error is that of reading where the
// table is, of MsixTables::find(), or PCI_ERR_NO_MEMORY.
pci_err_t find_msix_table(bdf_t bdf, unsigned offset, const msix_table_t *&table);

}  // namespace host
