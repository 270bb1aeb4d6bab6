// The interface to configuration space: a saved image, or live hardware.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "host/base/address.h"
#include "platform/types.h"

namespace host {

// How a register's value can change while its function is there.
enum class Changes {
    // The standard has them read only, and no reset changes them: IDs, class and header type, where
    // capabilities are, PCI Express Capabilities, Device Capabilities (but for Captured Slot Power
    // Limit, which nothing asks for), the ARI capability. A card that is swapped is another
    // function.
    // A device that changes its IDs in its place, as an FPGA may, counts as another one too.
    NEVER,
    // Settings change by writes, of this program or another one, and by resets.
    BY_WRITES
};

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

    // Reads like read() a register that hardware does not change by itself. On hardware the result
    // may be one that was read earlier: since the register was last written and since the last call
    // of look_again(), or for one that never changes, since the function came. So it does not tell
    // whether the function still answers, and another program may have written meanwhile: a
    // register that is written with some bits changed must be read by read() right before.
    virtual pci_err_t recall(RoutingId id, unsigned offset, unsigned width, Changes /*changes*/,
                             std::uint32_t &value) {
        return read(id, offset, width, value);
    }

    // Returns true when recall() may give what was read earlier.
    virtual bool keeps_registers() const { return false; }

    // Lets recall() read settings again. Call when a piece of work begins, and in it after whatever
    // may have changed registers elsewhere, such as a reset.
    virtual void look_again() {}

    // Lets recall() read settings every time until look_again() is called. Call between pieces of
    // work: a module's own thread must not get a setting that was read long ago.
    virtual void rest() {}

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
