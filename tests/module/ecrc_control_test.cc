// Requests become register settings at start-up, and again for functions that are inserted later.
#include "features/ecrc/control.h"

#include "host/exports/hooks.h"
#include "module/base/capability_call.h"
#include "platform/buscfg.h"
#include "tests/module/ecrc_test.h"

namespace host::tests {

using EcrcControl = EcrcTest;

TEST_F(EcrcControl, AppliesWishesAndTellsTheOutcome) {
    constexpr RoutingId F = at(0, 1);
    constexpr unsigned NOT_KEPT = 9;  // all writes succeed, and nothing sticks
    const struct {
        std::uint32_t capable, before;
        int gen, chk;
        unsigned failing_write;
        pci_err_t result;
        std::uint32_t after;
        std::string messages;
    } rows[] = {
        {BOTH_CAP, 0, 1, 1, 0, 0, BOTH_ON,
         "I2 B0:D1:F0 ECRC generation enabled\nI2 B0:D1:F0 ECRC checking enabled\n"},
        {BOTH_CAP, BOTH_ON, 1, 1, 0, 0, BOTH_ON,
         "I2 B0:D1:F0 ECRC generation enabled already\nI2 B0:D1:F0 ECRC checking enabled "
         "already\n"},
        {BOTH_CAP, BOTH_ON, -1, 0, 0, 0, CHK_ON, "I2 B0:D1:F0 ECRC generation disabled\n"},
        {BOTH_CAP, GEN_ON, 0, -1, 0, 0, GEN_ON, "I2 B0:D1:F0 ECRC checking disabled already\n"},
        {CHK_CAP, 0, 1, 1, 0, 0, CHK_ON,
         "W1 B0:D1:F0 is not capable of ECRC generation, ignoring enable\n"
         "I2 B0:D1:F0 ECRC checking enabled\n"},
        {GEN_CAP, GEN_ON, -1, -1, 0, 48, 0,
         "I2 B0:D1:F0 ECRC generation disabled\n"
         "W1 B0:D1:F0 is not capable of ECRC checking, ignoring disable\n"},
        {BOTH_CAP, CHK_ON, 1, -1, 1, 0, 0,
         "E1 B0:D1:F0 ECRC generation enable failed, {5}\nI2 B0:D1:F0 ECRC checking disabled\n"},
        {BOTH_CAP, BOTH_ON, -1, -1, 2, 5, CHK_ON,
         "I2 B0:D1:F0 ECRC generation disabled\nE1 B0:D1:F0 ECRC checking disable failed, {5}\n"},
        {BOTH_CAP, 0, 1, 0, NOT_KEPT, 5, 0, "E1 B0:D1:F0 ECRC generation enable failed, {5}\n"}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.messages);
        serve({{.id = F, .aer = row.capable}});
        module::ecrc_add_or_update_entry(F, row.gen, row.chk);
        machine->image.write(F, AER_CONTROL_AT, 4, row.before);
        const unsigned n = row.failing_write;
        machine->image.set_filter(
            [n, fault = fail(writes_to(F, AER_CONTROL_AT), n, n)](ImageAccess &access) {
                EXPECT_TRUE(list_locked());
                access.value = access.is_write && n == NOT_KEPT ? BOTH_CAP : access.value;
                return fault(access);
            });
        buscfg_t *const hosts_own = std::exchange(buscfg, nullptr);
        EXPECT_EQ(module::ecrc_init(&feature), 420U);
        buscfg = hosts_own;
        EXPECT_EQ(messages_but_debug(), "") << "nothing is switched without the hook";
        EXPECT_EQ(module::ecrc_init(&feature), row.result);
        machine->image.set_filter({});
        EXPECT_FALSE(list_locked());
        EXPECT_EQ(messages_but_debug(), expand(row.messages));
        EXPECT_EQ(machine->aer(F), row.capable | row.after);
    }
}

// Below port 00:01.0: a switch on bus 2 with ports to bus 3, where a bridge to bus 4 is and
// one that leads nowhere, and to bus 5, whose function is in ARI form. Port 00:02.0 leads to bus 6.
const std::vector<FunctionSpec> TREE = [] {
    auto tree = functions("0.1:4>1-5 0.2:4>6-6 1.0:5>2-5 2.0:6>3-4 2.1:6>5-5 3.0:0 3.1:7>4-4 "
                          "3.2:7>3-3 4.0:0 5.0:0 6.0:0");
    for (FunctionSpec &function : tree)
        function.aer = BOTH_CAP;
    tree[4].ari_forwarding = true;
    tree[9].next_ari = 0;
    return tree;
}();

TEST_F(EcrcControl, GivesInsertedFunctionsTheirWishesBack) {
    const std::string walk = "I2 No ECRC record for B1:D0:F0, skipping\n"
                             "I2 No ECRC record for B2:D0:F0, skipping\n"
                             "I2 B2:D1:F0 ECRC generation enabled\n"
                             "I2 B3:D0:F0 ECRC generation enabled\n"
                             "I2 B3:D0:F0 ECRC checking enabled\n"
                             "I2 No ECRC record for B3:D1:F0, skipping\n"
                             "I2 No ECRC record for B3:D2:F0, skipping\n"
                             "I2 No ECRC record for B4:D0:F0, skipping\n"
                             "E0 post_insertion_ecrc_enable(B3:D2:F0, 0, {0}), secondary bus "
                             "number unavailable\n"
                             "I2 B5:D0:F0 ECRC checking disabled already\n";
    const std::string unavailable = "E0 post_insertion_ecrc_enable(B0:D1:F0, 256, {0}), "
                                    "secondary bus number unavailable\n";
    const std::tuple<std::uint32_t, int, std::string> rows[] = {
        {0, 0, walk}, {255, 0, walk}, {0, 5, ""}, {256, 0, unavailable}};
    for (const auto &[value, status, log] : rows) {
        serve(TREE);
        start_with("ECRC=2.1.0:+:=\nECRC=3.0.0:+:+\nECRC=5.0:=:-\nECRC=6.0.0:+:+");
        messages();
        for (const FunctionSpec &function : TREE)
            machine->image.reset(function.id);
        machine->image.set_filter([this](ImageAccess &access) {
            bridge_rec *above = machine->machine->bridges().above(access.id);
            EXPECT_EQ(pthread_rwlock_trywrlock(&above->devs_lock), EBUSY);
            EXPECT_FALSE(list_locked());
            return PCI_OK;
        });
        bridge_rec *port = machine->bridge(at(0, 1));
        call_bridge_hooks(BUSCFG_HOOK_POST_INSERTION, port, value, status);
        machine->image.set_filter({});
        EXPECT_EQ(messages_but_debug(), expand(log));
        const bool applied = log == walk;
        EXPECT_EQ(machine->aer(at(2, 1)), BOTH_CAP | (applied ? GEN_ON : 0));
        EXPECT_EQ(machine->aer(at(3, 0)), BOTH_CAP | (applied ? BOTH_ON : 0));
        for (const RoutingId other : {at(4), at(5), at(6)})
            EXPECT_EQ(machine->aer(other), BOTH_CAP);
    }
}

// The new function's capability list begins elsewhere; objects made for the function before it are
// kept.
TEST_F(EcrcControl, LeavesAnotherFunctionAtTheSamePlaceAlone) {
    const std::vector<RoutingId> place = {at(1)};
    for (const auto &[offset, list, pcie_result] :
         {std::tuple(0x34U, 0U, 48U), {pci::EXT_CAPS, 0x0001'000BU, 0U}}) {
        serve({{.id = at(0, 1), .port = PORT_TYPE_ROOT_PORT, .secondary = 1},
               {.id = at(1), .aer = BOTH_CAP}});
        start_with("ECRC=1.0.0:+:+");
        machine->image.reset(at(1));
        machine->machine->update(place, {});
        machine->image.set_filter([&, offset = offset, list = list](ImageAccess &access) {
            EXPECT_FALSE(access.is_write);
            if (access.id == at(1) && access.offset == offset)
                access.value = list;
            return PCI_OK;
        });
        machine->machine->update({}, place);
        messages();
        call_bridge_hooks(BUSCFG_HOOK_POST_INSERTION, machine->bridge(at(0, 1)), 0, 0);
        EXPECT_EQ(messages_but_debug(), expand("E1 B1:D0:F0 ECRC generation enable failed, {48}\n"
                                               "E1 B1:D0:F0 ECRC checking enable failed, {48}\n"));
        std::uint16_t devctl = 0;
        EXPECT_EQ(module::call(module::ecrc_find_entry(at(1))->pcie_cap,
                               &pcie_cap_ops_t::read_devctl, &devctl),
                  pcie_result);
    }
}

}  // namespace host::tests
