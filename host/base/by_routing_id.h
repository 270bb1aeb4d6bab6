// A table by routing ID that takes memory, and time to visit, only for buses with an entry: a
// machine has few of the 256.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <memory>
#include <utility>

#include "host/base/address.h"
#include "platform/bdf.h"

namespace host {

// Look-ups and visits may run on any thread while one thread makes entries. An entry stays where it
// is as long as the table; `Value` is an atomic type where others read while it is written.
template <typename Value>
class ByRoutingId {
public:
    ByRoutingId() = default;
    ~ByRoutingId() {
        for (const auto &page : pages_)
            delete page.load();
    }
    ByRoutingId(const ByRoutingId &) = delete;
    ByRoutingId &operator=(const ByRoutingId &) = delete;

    // Returns the entry of `id`, made with a default value when its bus had none.
    Value &at(RoutingId id) {
        std::atomic<Page *> &page = pages_[pci::bus_of(id)];
        if (!page)
            page = std::make_unique<Page>().release();
        return (*page.load())[id % PAGE];
    }

    // Returns null where no entry of the bus has been made.
    const Value *find(RoutingId id) const {
        const Page *page = pages_[pci::bus_of(id)];
        return page ? &(*page)[id % PAGE] : nullptr;
    }
    Value *find(RoutingId id) { return const_cast<Value *>(std::as_const(*this).find(id)); }

    // Calls visit(id, value) for every function of a bus with an entry, ascending.
    template <typename Visit>
    void visit_bus(unsigned bus, Visit visit) {
        Page *page = pages_[bus];
        for (std::size_t i = 0; page && i < PAGE; ++i)
            visit(static_cast<RoutingId>(bus * PAGE + i), (*page)[i]);
    }

    // Does the same for all buses, ascending.
    template <typename Visit>
    void visit_all(Visit visit) {
        for (unsigned bus = 0; bus < pages_.size(); ++bus)
            visit_bus(bus, visit);
    }
    template <typename Visit>
    void visit_bus(unsigned bus, Visit visit) const {
        const_cast<ByRoutingId *>(this)->visit_bus(
            bus, [&](RoutingId id, const Value &value) { visit(id, value); });
    }
    template <typename Visit>
    void visit_all(Visit visit) const {
        const_cast<ByRoutingId *>(this)->visit_all(
            [&](RoutingId id, const Value &value) { visit(id, value); });
    }

private:
    static constexpr std::size_t PAGE = 256;
    using Page = std::array<Value, PAGE>;
    std::array<std::atomic<Page *>, ROUTING_IDS / PAGE> pages_{};
};

}  // namespace host
