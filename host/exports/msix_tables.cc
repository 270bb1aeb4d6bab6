#include "host/exports/msix_tables.h"

#include <new>

#include "host/exports/register_access.h"
#include "host/exports/serve.h"
#include "platform/pci_regs.h"

namespace host {

namespace {

using Table = MsixTables::Table;

// Maps the table in the function's own memory; null when it cannot be mapped.
volatile void *device_table(const Function &function, std::uint32_t place, std::size_t count) {
    return served()->machine.space().memory(function.id(), pci::get(place, pci::MSIX_TABLE_BIR),
                                            place & pci::MSIX_TABLE_OFFSET,
                                            count * sizeof(MsixTables::Vector));
}

// The caller holds the lock; modules read the word without it.
void set_address(Table &table, volatile void *address) {
    __atomic_store_n(&table.record.address, address, __ATOMIC_RELEASE);
}

// The caller holds the lock. A table of the host's own has room for the most entries that a
// function can have, because an overlapping capability may change the number in Message Control
// later.
pci_err_t set_up(Table &table, const Function &function, std::uint32_t place, std::size_t count) {
    if (table.record.address)
        return PCI_OK;
    if (served()->machine.space().has_memory()) {
        set_address(table, device_table(function, place, count));
        return table.record.address ? PCI_OK : PCI_ERR_IO;
    }
    table.vectors.resize(pci::MSIX_CONTROL_TABLE_SIZE + 1u);
    set_address(table, table.vectors.data());
    return PCI_OK;
}

}  // namespace

void MsixTables::forget(RoutingId id) {
    const std::scoped_lock guard(lock_);
    for (auto &[function, table] : by_function_)
        if (function->id() == id && table.vectors.empty())
            set_address(table, nullptr);
}

pci_err_t MsixTables::find(const Function &function, std::uint32_t place, std::size_t count,
                           const msix_table_t *&table) {
    const std::scoped_lock guard(lock_);
    // A function removed since it was found must not be mapped: its removal, which unmaps the
    // table, is over.
    if (!served()->machine.reachable(function))
        return PCI_ERR_NO_DEVICE;
    Table &own = by_function_[&function];
    if (const pci_err_t error = set_up(own, function, place, count))
        return error;
    table = &own.record;
    return PCI_OK;
}

pci_err_t find_msix_table(bdf_t bdf, unsigned offset, const msix_table_t *&table) {
    const Function *function = nullptr;
    if (const pci_err_t error = find_function(bdf, function))
        return error;
    std::uint16_t control = 0;
    if (const pci_err_t error = read_register(bdf, offset + pci::MSIX_CONTROL, control))
        return error;
    std::uint32_t place = 0;
    if (const pci_err_t error = read_register(bdf, offset + pci::MSIX_TABLE, place))
        return error;
    const std::size_t count = (control & pci::MSIX_CONTROL_TABLE_SIZE) + 1u;
    // Modules call through a C interface, which no exception may cross.
    try {
        return served()->msix_tables.find(*function, place, count, table);
    } catch (const std::bad_alloc &) {
        return PCI_ERR_NO_MEMORY;
    }
}

}  // namespace host
