// Shared by the tests of the Max Payload Size feature.
#pragma once

#include <algorithm>
#include <sstream>

#include "features/mps/hierarchy.h"
#include "features/mps/register_access.h"
#include "host/base/address.h"
#include "tests/support/faults.h"
#include "tests/support/module_test.h"

namespace host::tests {

// Port 00:01.0 leads to a switch, with ports to 03:00 and to an ARI device on bus 4, and allows 512
// bytes; port 00:02.0 allows 256, port 40:01.0 allows 2048. No size reaches 00:04.0, which has no
// bridge above, and what is below the conventional bridge 00:03.0. Firmware left nonsense behind.
inline const std::vector<FunctionSpec> TREE = {
    {.id = at(0, 1), .port = 4, .secondary = 1, .subordinate = 4, .payload_cap = 2},
    {.id = at(0, 2), .port = 4, .secondary = 5, .payload_cap = 1, .payload_set = 3},
    {.id = at(0, 3), .port = {}, .secondary = 6, .subordinate = 7},
    {.id = at(0, 4), .payload_cap = 5},
    {.id = at(0, 5), .port = PORT_TYPE_RCIEP, .payload_cap = 5},
    {.id = at(1), .port = 5, .secondary = 2, .subordinate = 4, .payload_cap = 5, .payload_set = 7},
    {.id = at(2, 0), .port = 6, .secondary = 3, .payload_cap = 3, .payload_set = 6},
    {.id = at(2, 1), .port = 6, .secondary = 4, .payload_cap = 5, .ari_forwarding = true},
    {.id = at(3, 0, 0), .payload_cap = 3, .payload_set = 5},
    {.id = at(3, 0, 1), .payload_cap = 3, .payload_set = 7},
    {.id = at(3, 1, 2), .payload_cap = 3},
    {.id = ari_at(4, 0), .port = 8, .payload_cap = 3, .payload_set = 2, .next_ari = 5},
    {.id = ari_at(4, 5), .port = 1, .payload_cap = 3, .payload_set = 6, .next_ari = 130},
    {.id = ari_at(4, 130), .payload_cap = 3, .payload_set = 4, .next_ari = 0},
    {.id = at(5), .payload_cap = 5, .payload_set = 6},
    {.id = at(6, 0), .payload_cap = 5},
    {.id = at(6, 1), .port = {}, .secondary = 7},
    {.id = at(7, 0, 0), .port = {}},
    {.id = at(7, 0, 2), .payload_cap = 5},
    {.id = at(64, 1), .port = 4, .secondary = 65, .payload_cap = 4, .payload_set = 5},
    {.id = at(65), .payload_cap = 5, .payload_set = 7}};

class MpsTest : public ModuleTest {
protected:
    static inline module::feature_t &feature = module::feature_list[module::ROW_MPS];

    // Returns the lines that have been logged since the last call and hold one of the pieces.
    std::string said(const std::vector<std::string> &pieces) {
        std::istringstream log(messages());
        std::string kept;
        for (std::string line; std::getline(log, line);)
            if (std::ranges::any_of(
                    pieces, [&](auto &piece) { return line.find(piece) != std::string::npos; }))
                kept += line + '\n';
        return kept;
    }

    // Notes every payload size that is written, before it takes effect, and counts accesses by
    // whether the endpoint list's lock is held.
    void record(AccessFilter fault = {}) {
        writes_.clear();
        last_written_ = locked = unlocked = 0;
        machine->image.set_filter([this, fault](ImageAccess &access) {
            ++(is_locked(feature.list.lock) ? locked : unlocked);
            EXPECT_FALSE(is_locked(module::rp_list.lock));
            if (access.is_write)
                note(access);
            return fault ? fault(access) : PCI_OK;
        });
    }

    // Stops noting and returns the notes: "=256 00:01.0 01:00.0 =128 00:01.0 ".
    std::string writes() {
        machine->image.set_filter({});
        return writes_;
    }

    // Returns every request, in list order: "03:00.0=256 ".
    static std::string requested() {
        std::string text;
        for (auto *entry = module::first_mps_entry(feature.list); entry;
             entry = module::next_mps_entry(entry))
            if (entry->mps != 0)
                text += bdf_text(entry->bdf) + '=' + std::to_string(entry->mps) + ' ';
        return text;
    }

    // Returns `member` of every root port's entry, in list order: "512 256 ".
    static std::string root_ports(std::uint32_t module::rp_entry::*member) {
        std::string text;
        for (auto *link = module::rp_list.first; link; link = link->next)
            text += std::to_string(static_cast<module::rp_entry *>(link)->*member) + ' ';
        return text;
    }

    // Returns a function's Max_Payload_Size, in bytes.
    unsigned payload(RoutingId id) { return 128U << (machine->get(id, DEVCTL_AT, 2) >> 5 & 7); }

    unsigned locked = 0, unlocked = 0;

private:
    void note(const ImageAccess &access) {
        EXPECT_TRUE(access.offset == DEVCTL_AT && access.width == 2);
        const unsigned size = 128U << (access.value >> 5 & 7);
        if (std::exchange(last_written_, size) != size)
            writes_ += '=' + std::to_string(size) + ' ';
        writes_ += bdf_text(access.id) + ' ';
    }

    std::string writes_;
    unsigned last_written_ = 0;
};

}  // namespace host::tests
