#include "host/exports/serve.h"

#include <atomic>
#include <memory>
#include <utility>

#include "host/exports/capability_objects.h"

namespace host {

namespace {

std::atomic<Served *> current = nullptr;

}  // namespace

void serve(Machine *machine, ManagedBuses managed, bool complete) {
    std::unique_ptr<Served> next;
    if (machine) {
        machine->bridges().set_operations(pcie_operations());
        next.reset(
            new Served{.machine = *machine, .managed = std::move(managed), .complete = complete});
    }
    next.reset(current.exchange(next.release()));  // frees the former one
}

Served *served() {
    return current;
}

bool manages(unsigned bus) {
    const Served *now = served();
    return !now || (bus < now->managed.size() && now->managed[bus]);
}

}  // namespace host
