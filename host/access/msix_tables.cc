#include "host/access/msix_tables.h"

#include <mutex>
#include <unordered_map>
#include <vector>

#include "host/access/register_access.h"
#include "host/access/serve.h"
#include "host/machine/registers.h"

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
    std::unordered_map<RoutingId, Table> by_function;
};

Tables &tables() {
    static Tables all;
    return all;
}

}  // namespace

pci_err_t find_msix_table(bdf_t bdf, unsigned offset, const msix_table_t *&table) {
    std::uint16_t control = 0;
    if (const pci_err_t error = read_register(bdf, offset + reg::MSIX_CONTROL, control))
        return error;
    Tables &all = tables();
    const std::scoped_lock guard(all.lock);
    if (all.serve_count != serve_count())
        all.by_function.clear();
    all.serve_count = serve_count();
    Table &own = all.by_function[static_cast<RoutingId>(bdf & BDF_ROUTING_ID)];
    if (own.vectors.empty()) {
        own.vectors.resize((control & reg::MSIX_TABLE_SIZE) + 1u);
        own.record.address = own.vectors.data();
    }
    table = &own.record;
    return PCI_OK;
}

}  // namespace host
