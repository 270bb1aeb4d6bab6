#include "host/exports/msix_tables.h"

#include <mutex>
#include <new>
#include <unordered_map>
#include <vector>

#include "host/exports/register_access.h"
#include "host/exports/serve.h"
#include "host/space/registers.h"

namespace host {

namespace {

struct Vector {
    std::uint32_t address = 0;
    std::uint32_t upper_address = 0;
    std::uint32_t data = 0;
    std::uint32_t control = 1;  // bit 0: masked
};

struct Table {
    std::vector<Vector> vectors;
    msix_table_t record{};
};

struct Tables {
    std::mutex lock;
    std::uint64_t serve_count = 0;
    std::unordered_map<const Function *, Table> by_function;
};

Tables &tables() {
    static Tables all;
    return all;
}

// The table in the function's own memory; null when it cannot be mapped.
volatile void *device_table(const Function &function, std::uint32_t place, std::size_t count) {
    const std::uint32_t bar = place & reg::MSIX_TABLE_BAR;
    return served()->space().memory(function.id(), bar, place - bar, count * sizeof(Vector));
}

// With the lock held; modules read the word without it.
void set_address(Table &table, volatile void *address) {
    __atomic_store_n(&table.record.address, address, __ATOMIC_RELEASE);
}

// With the lock held. A table of the host's own has room for as many entries as a function can
// have: capabilities that overlap may let the number in Message Control change later.
pci_err_t set_up(Table &table, const Function &function, std::uint32_t place, std::size_t count) {
    if (table.record.address)
        return PCI_OK;
    if (served()->space().has_memory()) {
        set_address(table, device_table(function, place, count));
        return table.record.address ? PCI_OK : PCI_ERR_IO;
    }
    table.vectors.resize(reg::MSIX_TABLE_SIZE + 1u);
    set_address(table, table.vectors.data());
    return PCI_OK;
}

pci_err_t find_or_set_up(const Function &function, std::uint32_t place, std::size_t count,
                         const msix_table_t *&table) {
    Tables &all = tables();
    const std::scoped_lock guard(all.lock);
    // Removed since it was found: nobody would unmap its table again.
    if (!served()->reachable(function))
        return PCI_ERR_NO_DEVICE;
    if (all.serve_count != serve_count())
        all.by_function.clear();
    all.serve_count = serve_count();
    Table &own = all.by_function[&function];
    if (const pci_err_t error = set_up(own, function, place, count))
        return error;
    table = &own.record;
    return PCI_OK;
}

}  // namespace

void forget_msix_tables(RoutingId id) {
    Tables &all = tables();
    const std::scoped_lock guard(all.lock);
    if (all.serve_count != serve_count())
        return;  // those of another machine
    for (auto &[function, table] : all.by_function)
        if (function->id() == id && table.vectors.empty())
            set_address(table, nullptr);
}

pci_err_t find_msix_table(bdf_t bdf, unsigned offset, const msix_table_t *&table) {
    const Function *function = nullptr;
    if (const pci_err_t error = find_function(bdf, function))
        return error;
    std::uint16_t control = 0;
    if (const pci_err_t error = read_register(bdf, offset + reg::MSIX_CONTROL, control))
        return error;
    std::uint32_t place = 0;
    if (const pci_err_t error = read_register(bdf, offset + reg::MSIX_TABLE, place))
        return error;
    const std::size_t count = (control & reg::MSIX_TABLE_SIZE) + 1u;
    // Modules ask through a C interface, which no exception may cross.
    try {
        return find_or_set_up(*function, place, count, table);
    } catch (const std::bad_alloc &) {
        return PCI_ERR_NO_MEMORY;
    }
}

}  // namespace host
