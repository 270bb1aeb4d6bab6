// Event agents: a record for each root complex event collector, made when it is first asked for and
// kept as long as the machine is served.
#include <cstdlib>
#include <memory>
#include <mutex>
#include <unordered_map>

#include "host/access/capability_objects.h"
#include "host/access/register_access.h"
#include "host/access/serve.h"
#include "platform/server.h"

namespace host {

namespace {

struct FreeMemory {
    void operator()(void *memory) const { std::free(memory); }
};

using CapPointer = std::unique_ptr<pci_cap_t, FreeMemory>;

// Null when the function has no such capability, or it cannot be read.
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

class Agent {
public:
    explicit Agent(const Function &collector)
        : device_{collector.bdf}, msi_(capability(collector, CAPID_MSI)),
          msix_(capability(collector, CAPID_MSIX)),
          rcec_(ext_capability(collector, EXT_CAPID_RCEC)),
          capset_{.device = &device_,
                  .msi = reinterpret_cast<msi_cap_t *>(msi_.get()),
                  .msix = reinterpret_cast<msix_cap_t *>(msix_.get()),
                  .rcec = reinterpret_cast<rcec_cap_t *>(rcec_.get())},
          record_{&capset_} {}
    Agent(const Agent &) = delete;
    Agent &operator=(const Agent &) = delete;

    event_agent_t *record() { return &record_; }

private:
    event_device_t device_;
    CapPointer msi_;
    CapPointer msix_;
    CapPointer rcec_;
    event_capset_t capset_;
    event_agent_t record_;
};

struct Agents {
    std::mutex lock;
    std::uint64_t serve_count = 0;
    std::unordered_map<RoutingId, std::unique_ptr<Agent>> by_function;
};

Agents &agents() {
    static Agents all;
    return all;
}

event_agent_t *find_agent(const Function &collector) {
    Agents &all = agents();
    const std::scoped_lock guard(all.lock);
    if (all.serve_count != serve_count())
        all.by_function.clear();
    all.serve_count = serve_count();
    std::unique_ptr<Agent> &agent = all.by_function[collector.id()];
    if (!agent)
        agent = std::make_unique<Agent>(collector);
    return agent->record();
}

}  // namespace

}  // namespace host

event_agent_t *find_event_agent(bdf_t bdf) {
    const host::Function *function = nullptr;
    if (host::find_function(bdf, function) != PCI_OK ||
        function->class_code != EVENT_COLLECTOR_CLASS)
        return nullptr;
    return host::find_agent(*function);
}
