// The functions that the kernel has now, whatever was there before.
#pragma once

#include <vector>

#include "host/space/config_space.h"

namespace host {

class LiveFunctions {
public:
    virtual ~LiveFunctions() = default;

    // Ascending.
    virtual std::vector<RoutingId> functions() const = 0;

    virtual bool has(RoutingId id) const = 0;

    // Whether it is a virtual function of an SR-IOV device.
    virtual bool is_virtual(RoutingId id) const = 0;

    // The bridges above a function, the nearest first, as the kernel knows them.
    virtual std::vector<RoutingId> bridges_above(RoutingId id) const = 0;

    // Whether there is a function that answers.
    virtual bool answers(RoutingId id) = 0;

    // Whether the function is no longer the one that the first access since forget() went to.
    virtual bool is_another(RoutingId id) const = 0;

    // Drops what is kept open for a function: another one may come to the same place.
    virtual void forget(RoutingId id) = 0;

protected:
    LiveFunctions() = default;
    LiveFunctions(const LiveFunctions &) = default;
    LiveFunctions &operator=(const LiveFunctions &) = default;
};

}  // namespace host
