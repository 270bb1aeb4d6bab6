#include "host/exports/serve.h"

#include <atomic>
#include <utility>

#include "host/exports/capability_objects.h"

namespace host {

namespace {

std::atomic<Machine *> current = nullptr;
std::atomic<std::uint64_t> count = 0;

ManagedBuses &managed_buses() {
    static ManagedBuses buses(256, true);
    return buses;
}

}  // namespace

void serve(Machine *machine, ManagedBuses managed) {
    managed_buses() = std::move(managed);
    if (machine)
        machine->bridges().set_operations(pcie_operations());
    current = machine;
    ++count;
}

Machine *served() {
    return current;
}

bool manages(unsigned bus) {
    const ManagedBuses &buses = managed_buses();
    return bus < buses.size() && buses[bus];
}

std::uint64_t serve_count() {
    return count;
}

}  // namespace host
