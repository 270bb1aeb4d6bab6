// The content of the reports about one function.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/report/feature_state.h"

namespace host {

struct FunctionReport {
    Function function;
    std::string address;                // as lspci writes it
    std::string name;                   // lspci's text behind the address
    std::string physical;               // address of a virtual function's physical one
    std::optional<std::size_t> bridge;  // index of the upstream bridge; nullopt on a root bus
    bool managed = true;                // by this server instance
    FeatureState before;
    FeatureState after;
    bool removed = false;      // gone, and by an event
    bool completed = false;    // the host has set its payload size (--complete)
    bool completable = false;  // the host would set it with --complete
    bool selected = true;      // see selection.h
    bool shown = true;         // selected, or above a function that is

    bool gone() const { return before.reachable && !after.reachable; }
    bool changed() const { return before != after; }
    // Returns true for a function that is there, or was until no event removed it, and does not
    // answer.
    bool is_silent() const {
        return (!function.answers && !function.physical) || (gone() && !removed);
    }
};

// Returns the index of the root port that a function is or is below; nullopt for others.
std::optional<std::size_t> root_port_of(const std::vector<FunctionReport> &functions,
                                        std::size_t function);

// Returns the index of the nearest bridge above with a PCI Express capability; nullopt on a root
// bus.
std::optional<std::size_t> port_above(const std::vector<FunctionReport> &functions,
                                      std::size_t function);

}  // namespace host
