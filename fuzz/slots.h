// Configuration space of which functions are exchanged for others, as a kernel sees it.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "host/machine/machine.h"
#include "host/space/config_image.h"
#include "host/space/live_functions.h"
#include "host/space/machine_source.h"
#include "platform/pci_regs.h"

namespace host::fuzz {

// Shows the image of a machine source, which gets another image with each exchange.
class Slots final : public ConfigSpace, public LiveFunctions {
public:
    explicit Slots(MachineSource &source) : source_(source) {}

    void exchange(RoutingId id, const std::vector<std::uint8_t> &bytes) {
        auto image = std::make_unique<ConfigImage>();
        for (const RoutingId each : functions())
            image->add(each, title(each), each == id ? bytes : source_.image->bytes(each));
        source_.image = std::move(image);
        exchanged_.insert(id);
    }

    std::vector<RoutingId> functions() const override { return source_.image->functions(); }
    std::string title(RoutingId id) const override { return source_.image->title(id); }
    pci_err_t read(RoutingId id, unsigned offset, unsigned width, std::uint32_t &value) override {
        return source_.image->read(id, offset, width, value);
    }
    pci_err_t write(RoutingId id, unsigned offset, unsigned width, std::uint32_t value) override {
        return source_.image->write(id, offset, width, value);
    }

    // The kernel's view: its bridges are where bus numbers say, and it has no virtual functions.
    void set_machine(const Machine &machine) { machine_ = &machine; }
    bool has(RoutingId id) const override { return source_.image->present(id); }
    bool is_virtual(RoutingId) const override { return false; }
    std::vector<RoutingId> bridges_above(RoutingId id) const override {
        std::vector<RoutingId> path;
        const bridge_rec *bridge = machine_->bridges().above(id);
        for (; bridge && bridge->parent; bridge = bridge->parent)
            path.push_back(pci::routing_id_of(bridge->bdf));
        return path;
    }
    bool answers(RoutingId id) override {
        std::uint32_t vendor = pci::VENDOR_ID_NONE;
        read(id, pci::VENDOR_ID, 2, vendor);
        return vendor != pci::VENDOR_ID_NONE;
    }
    bool is_another(RoutingId id) const override { return exchanged_.contains(id); }
    void forget(RoutingId id) override { exchanged_.erase(id); }

private:
    MachineSource &source_;
    const Machine *machine_ = nullptr;
    std::set<RoutingId> exchanged_;  // since forget()
};

}  // namespace host::fuzz
