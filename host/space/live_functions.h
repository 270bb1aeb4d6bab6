// The functions that the kernel has now, whatever it had before.
#pragma once

#include <vector>

#include "host/space/config_space.h"

namespace host {

class LiveFunctions {
public:
    virtual ~LiveFunctions() = default;

    // Returns them in ascending order.
    virtual std::vector<RoutingId> functions() const = 0;

    virtual bool has(RoutingId id) const = 0;

    // Returns true for a virtual function of an SR-IOV device.
    virtual bool is_virtual(RoutingId id) const = 0;

    // Returns the bridges above a function, the nearest first, as the kernel knows them.
    virtual std::vector<RoutingId> bridges_above(RoutingId id) const = 0;

    // Returns true when the function exists and answers.
    virtual bool answers(RoutingId id) = 0;

    // Returns true when another function is there than at the first access since forget(), or the
    // kernel has made it anew.
    virtual bool is_another(RoutingId id) const = 0;

    // Drops what is kept open for a function, because another one may come to the same address.
    virtual void forget(RoutingId id) = 0;

protected:
    LiveFunctions() = default;
    LiveFunctions(const LiveFunctions &) = default;
    LiveFunctions &operator=(const LiveFunctions &) = default;
};

}  // namespace host
