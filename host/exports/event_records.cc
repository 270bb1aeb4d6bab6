#include "host/exports/event_records.h"

#include <cstdlib>
#include <new>

#include "host/exports/capability_objects.h"
#include "host/exports/msix_tables.h"
#include "host/exports/register_access.h"
#include "host/exports/serve.h"
#include "platform/server.h"

namespace host {

namespace {

struct FreeMemory {
    void operator()(void *memory) const { std::free(memory); }
};

using CapPointer = std::unique_ptr<pci_cap_t, FreeMemory>;

// Returns null when the function has no such capability, or it cannot be read.
CapPointer capability(const Function &function, std::uint8_t id) {
    pci_cap_t *object = nullptr;
    if (const auto offset = function.cap(id))
        new_capability(function.bdf, {id, *offset}, &object);
    return CapPointer(object);
}

CapPointer ext_capability(const Function &function, std::uint16_t id) {
    pci_cap_t *object = nullptr;
    if (const auto offset = function.ext_cap(id))
        new_ext_capability(function.bdf, {id, *offset}, &object);
    return CapPointer(object);
}

// Returns null without memory, because modules call through a C interface, which no exception may
// cross.
FunctionRecords *records_of(const Function &function) try {
    return &served()->event_records.find(function);
} catch (const std::bad_alloc &) {
    return nullptr;
}

}  // namespace

// The event agent and the event notification of one function share its capability set.
class FunctionRecords {
public:
    explicit FunctionRecords(const Function &function)
        : device_{function.bdf}, msi_(capability(function, CAPID_MSI)),
          msix_(capability(function, CAPID_MSIX)), rcec_(ext_capability(function, EXT_CAPID_RCEC)),
          capset_{.device = &device_,
                  .msi = reinterpret_cast<msi_cap_t *>(msi_.get()),
                  .msix = reinterpret_cast<msix_cap_t *>(msix_.get()),
                  .rcec = reinterpret_cast<rcec_cap_t *>(rcec_.get())},
          agent_{&capset_}, notification_{&capset_} {}
    FunctionRecords(const FunctionRecords &) = delete;
    FunctionRecords &operator=(const FunctionRecords &) = delete;

    // Maps the vector table again if removing the function has unmapped it.
    void map_again() const {
        const msix_table_t *same = nullptr;
        if (msix_)
            find_msix_table(device_.bdf, msix_->offset, same);
    }

    event_agent_t *agent() { return &agent_; }
    event_notification_t *notification() { return &notification_; }

private:
    event_device_t device_;
    CapPointer msi_;
    CapPointer msix_;
    CapPointer rcec_;
    event_capset_t capset_;
    event_agent_t agent_;
    event_notification_t notification_;
};

EventRecords::EventRecords() = default;
EventRecords::~EventRecords() = default;

FunctionRecords &EventRecords::find(const Function &function) {
    const std::scoped_lock guard(lock_);
    std::unique_ptr<FunctionRecords> &records = by_function_[&function];
    if (records)
        records->map_again();
    else
        records = std::make_unique<FunctionRecords>(function);
    return *records;
}

event_notification_t *find_event_notification(bdf_t bdf) {
    const Function *function = nullptr;
    if (find_function(bdf, function) != PCI_OK)
        return nullptr;
    FunctionRecords *records = records_of(*function);
    return records ? records->notification() : nullptr;
}

}  // namespace host

event_agent_t *find_event_agent(bdf_t bdf) {
    const host::Function *function = nullptr;
    if (host::find_function(bdf, function) != PCI_OK ||
        function->class_code != EVENT_COLLECTOR_CLASS)
        return nullptr;
    host::FunctionRecords *records = host::records_of(*function);
    return records ? records->agent() : nullptr;
}
