// What has been read from registers, so that it need not be read again.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "host/space/config_space.h"

namespace host {

// Byte by byte, so that a register is known however wide the accesses were. Not thread-safe.
class KeptRegisters {
public:
    // Returns the value that keep() was told; nullopt where a byte is not known, or may have
    // changed as `changes` says.
    std::optional<std::uint32_t> find(RoutingId id, unsigned offset, unsigned width,
                                      Changes changes) const;

    void keep(RoutingId id, unsigned offset, unsigned width, std::uint32_t value);

    // Drops the settings in these bytes, which have been written.
    void drop(RoutingId id, unsigned offset, unsigned width);

    // Drops the settings of all functions; `keeps` tells whether those read from now on are kept.
    void drop_all(bool keeps) {
        ++age_;
        keeps_settings_ = keeps;
    }

    // Drops all of a function, because another one may come to the same address.
    void forget(RoutingId id) { functions_.erase(id); }

private:
    struct Register {
        unsigned offset;       // a multiple of 4
        std::uint32_t value;   // 32 bits
        std::uint32_t known;   // the bits that have been read
        std::uint32_t recent;  // the bits of settings that are as read, as long as `age` is that
                               // of all
        std::uint64_t age;
    };

    std::map<RoutingId, std::vector<Register>> functions_;
    std::uint64_t age_ = 0;
    bool keeps_settings_ = true;
};

}  // namespace host
