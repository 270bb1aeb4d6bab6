// Recorded requests: the probe of a function's controls, and later requests for the same function.
#include "features/ecrc/entry_list.h"

#include "platform/pci_access.h"
#include "tests/module/ecrc_test.h"

namespace host::tests {

using module::ecrc_add_or_update_entry;
using module::ecrc_find_entry;

constexpr RoutingId F = at(0, 1);
const std::string GEN_RESTORED =
    "I2 Restore ECRC generation state to enabled for no-change setting, ";
const std::string CHK_RESTORED =
    "I2 Restore ECRC checking state to enabled for no-change setting, ";

using EcrcEntries = EcrcTest;

TEST_F(EcrcEntries, ProbeWhatAFunctionCanDo) {
    const std::tuple<std::uint32_t, int, int, std::uint32_t, std::string> rows[] = {
        {BOTH_CAP, 1, 1, BOTH_CAP, ""},
        {BOTH_CAP, 0, -1, BOTH_CAP, ""},
        {BOTH_CAP | BOTH_ON, 1, -1, BOTH_CAP, ""},
        {BOTH_CAP | BOTH_ON, 0, 1, BOTH_CAP | GEN_ON, GEN_RESTORED + "{0}\n"},
        {BOTH_CAP | BOTH_ON, -1, 0, BOTH_CAP | CHK_ON, CHK_RESTORED + "{0}\n"},
        {GEN_CAP | GEN_ON, 0, 1, GEN_CAP | GEN_ON, GEN_RESTORED + "{0}\n"},
        {CHK_CAP, 1, 1, CHK_CAP, ""},
        {0, 1, 1, 0, ""}};
    for (const auto &[aer, gen, chk, after, log] : rows) {
        serve({{.id = F, .aer = aer}});
        EXPECT_EQ(ecrc_add_or_update_entry(F, gen, chk), aer == 0 ? 48U : 0U);
        EXPECT_EQ(messages(), expand(log));
        EXPECT_EQ(machine->aer(F), after);
        const module::ecrc_entry *entry = ecrc_find_entry(F);
        EXPECT_EQ(entry != nullptr, aer != 0);
        EXPECT_EQ(entry && entry->gen_capable, (aer & GEN_CAP) != 0);
        EXPECT_EQ(entry && entry->chk_capable, (aer & CHK_CAP) != 0);
    }
}

TEST_F(EcrcEntries, TakeOverLaterWishesWithoutAnAccess) {
    serve({{.id = F, .aer = BOTH_CAP}, {.id = at(0, 2), .aer = BOTH_CAP}});
    EXPECT_EQ(ecrc_add_or_update_entry(F, 1, 0), 0U);
    EXPECT_EQ(ecrc_add_or_update_entry(at(0, 2), 0, 1), 0U);
    machine->image.set_filter([](ImageAccess &access) {
        ADD_FAILURE() << "access at " << access.offset;
        return PCI_OK;
    });
    const std::tuple<int, int, std::string> rows[] = {
        {0, -1, "0.1.0:+:-"}, {0, 0, "0.1.0:+:-"}, {-1, 0, "0.1.0:-:-"}, {1, 1, "0.1.0:+:+"}};
    for (const auto &[gen, chk, list] : rows) {
        EXPECT_EQ(ecrc_add_or_update_entry(F, gen, chk), 0U);
        EXPECT_EQ(recorded(), list + " 0.2.0:=:+ ");
    }
    const module::entry_list_t &list = feature.list;
    EXPECT_EQ(list.count, 2U);
    EXPECT_EQ(list.first->prev, &list.first);
    EXPECT_EQ(list.last, list.first->next);
    EXPECT_EQ(list.last->prev, &list.first->next);
}

TEST_F(EcrcEntries, AreFoundByTheirWholeAddress) {
    serve({{.id = at(0, 1), .port = PORT_TYPE_ROOT_PORT, .secondary = 1, .ari_forwarding = true},
           {.id = ari_at(1, 0), .aer = BOTH_CAP, .next_ari = 9},
           {.id = ari_at(1, 9), .aer = BOTH_CAP, .next_ari = 0}});
    EXPECT_EQ(ecrc_add_or_update_entry(ari(ari_at(1, 9)), 1, 1), 0U);
    EXPECT_EQ(ecrc_add_or_update_entry(at(1), 1, 1), 0U);
    EXPECT_EQ(ecrc_find_entry(ari(ari_at(1, 9))), feature.list.first);
    EXPECT_EQ(ecrc_find_entry(at(1)), feature.list.last);
    EXPECT_EQ(ecrc_find_entry(ari_at(1, 9)), nullptr);
    EXPECT_EQ(ecrc_find_entry(ari(at(1))), nullptr);
    EXPECT_EQ(ecrc_find_entry(BDF_NONE), nullptr);
    // A port with capability version 1 has no Device Control 2; other registers are at its place.
    serve({{.id = at(0, 1), .secondary = 1, .ari_forwarding = true, .dwords = {{0x40, 0x410010}}},
           {.id = at(1), .next_ari = 0}});
    EXPECT_EQ(pci_device_find(1, ANY_VENDOR, ANY_DEVICE, ANY_CLASS), at(1));
}

// An access fails once or for good, or memory for the entry or a capability object.
TEST_F(EcrcEntries, AreRecordedOrLeaveNothingBehindWhateverFails) {
    for (unsigned accesses = 1, n = 1; n <= accesses; ++n)
        for (const AccessFilter &fault : {AccessFilter(), fail(of(F), n, n), vanish(F, n)}) {
            SCOPED_TRACE(n);
            serve({{.id = F, .aer = BOTH_CAP | BOTH_ON}});
            fail_calloc(fault ? 0 : n);
            accesses = 0;
            machine->image.set_filter([&accesses, fault](ImageAccess &access) {
                ++accesses;
                EXPECT_TRUE(list_locked());
                return fault ? fault(access) : PCI_OK;
            });
            const pci_err_t result = ecrc_add_or_update_entry(F, 0, 0);
            EXPECT_EQ(recorded(), result == 0 ? "0.1.0:=:= " : "");
            EXPECT_FALSE(list_locked());
            EXPECT_TRUE(fault ? accesses >= n : n > 3 || result == PCI_ERR_NO_MEMORY);
        }
}

}  // namespace host::tests
