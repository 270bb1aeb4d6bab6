// The interface to configuration space: a saved image, or live hardware.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "host/base/address.h"
#include "platform/types.h"

namespace host {

// Every function may be called from any thread.
class ConfigSpace {
public:
    virtual ~ConfigSpace() = default;

    // Returns every function that the source knows, ascending, whether or not it answers.
    virtual std::vector<RoutingId> functions() const = 0;

    // Returns lspci's text for the function ("04:00.0 PCI bridge: ..."), for reports and dumps.
    virtual std::string title(RoutingId id) const = 0;

    // Read or write `width` (1, 2 or 4) bytes at a naturally aligned `offset`, little endian on the
    // bus and in the processor's order here. PCI_ERR_NO_DEVICE when there is no such function,
    // PCI_ERR_IO outside the bytes that the source has, PCI_ERR_INVALID for a bad width or offset.
    // `value` is set on success only.
    virtual pci_err_t read(RoutingId id, unsigned offset, unsigned width, std::uint32_t &value) = 0;
    virtual pci_err_t write(RoutingId id, unsigned offset, unsigned width, std::uint32_t value) = 0;

    // Returns true when functions have memory behind their Base Address Registers. An image has
    // none.
    virtual bool has_memory() const { return false; }

    // Returns `size` bytes at `offset` of the memory behind Base Address Register `bar` (0 to 5).
    // Valid as long as the source has the function; null when the memory cannot be reached.
    virtual volatile void *memory(RoutingId /*id*/, unsigned /*bar*/, std::size_t /*offset*/,
                                  std::size_t /*size*/) {
        return nullptr;
    }
};

}  // namespace host
