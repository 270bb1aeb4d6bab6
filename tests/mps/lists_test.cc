// Endpoints and root ports: how they are recognised, and the lists that are built of them.
#include "tests/mps/mps_test.h"
#include "topology/classification.h"

namespace host::tests {

using MpsLists = MpsTest;

TEST_F(MpsLists, TellEndpointsByTypeAndAriCapability) {
    constexpr std::uint32_t NONE = 77;
    constexpr RoutingId F = at(1);
    const auto ask = [this](const FunctionSpec &function, bdf_t bdf, bool memory = true) {
        serve({function});
        fail_calloc(memory ? 0 : 1);
        std::uint32_t type = NONE;
        const bool answer = module::is_an_ep(bdf, &type);
        EXPECT_EQ(messages(), "D3 is_an_ep(" + printed(bdf) + ", entry=" + std::to_string(type) +
                                  (answer ? "), T\n" : "), F\n"));
        return type;
    };
    for (std::uint8_t type = 0; type < 16; ++type)
        EXPECT_EQ(ask({.id = F, .port = type}, F), type < 2 || type == 9 ? type : NONE);
    EXPECT_EQ(ask({.id = F, .port = {}}, F), NONE);
    EXPECT_EQ(ask({.id = F}, BDF_NONE), NONE);
    EXPECT_EQ(ask({.id = F, .aer = 0}, ari(F)), NONE);
    EXPECT_EQ(ask({.id = F, .next_ari = 0}, ari(F)), 0U);
    EXPECT_EQ(ask({.id = F, .next_ari = 0}, ari(F), false), NONE);
}

TEST_F(MpsLists, HoldOneEntryForEachDeviceAndRootPort) {
    ManagedBuses managed(256, true);
    managed[5] = managed[64] = false;
    serve(TREE, managed);
    // A refused update builds the list too.
    EXPECT_EQ(module::mps_update_entry(BDF_NONE, 300), 22U);
    EXPECT_EQ(said({"_once_init", "RCiEP"}),
              expand("D3 ep_list_once_init, new entry for B0:D4:F0 added\n"
                     "I2 RCiEP B0:D5:F0 excluded\n"
                     "D3 ep_list_once_init, new entry for B3:D0:F0 added\n"
                     "D3 ep_list_once_init, new entry for B4:D0:F5 added\n"
                     "D4 ep_list_once_init(), B5:D0:F0 is not managed by server ID 1, skipping\n"
                     "D3 ep_list_once_init, new entry for B6:D0:F0 added\n"
                     "D3 ep_list_once_init, new entry for B7:D0:F2 added\n"
                     "D4 ep_list_once_init(), B64:D1:F0 is not managed by server ID 1, skipping\n"
                     "D3 ep_list_once_init, new entry for B65:D0:F0 added\n"));
    EXPECT_EQ(feature.list.count, 6U);
    EXPECT_EQ(root_ports(&module::rp_entry::path_max), "512 256 ");
    const std::pair<bdf_t, bdf_t> keys[] = {
        {at(3, 0, 7), at(3)},     {at(7, 0, 2), at(7)},   {ari(ari_at(4, 255)), ari(at(4))},
        {ari_at(4, 5), BDF_NONE}, {ari(at(3)), BDF_NONE}, {at(3, 1, 2), BDF_NONE}};
    for (const auto &[bdf, key] : keys) {
        const module::mps_entry *entry = module::mps_find_entry(bdf);
        EXPECT_EQ(entry ? entry->bdf : BDF_NONE, key);
        EXPECT_EQ(messages(), "D3 mps_find_entry(" + printed(bdf) + ") returns " +
                                  (entry ? "entry\n" : "(nil)\n"));
    }
}

TEST_F(MpsLists, LeaveOutWhatHasNoMemory) {
    serve(TREE);
    fail_calloc(1, sizeof(module::mps_entry));
    EXPECT_EQ(module::mps_find_entry(at(0, 4)), nullptr);
    EXPECT_EQ(feature.list.count, 6U);
    EXPECT_EQ(said({"E0"}), "E0 ep_list_once_init, unable to allocate mps_entry\n");

    serve(TREE);
    fail_calloc(2, sizeof(module::rp_entry));
    EXPECT_EQ(module::find_rp_entry(machine->bridge(at(0, 2))), nullptr);
    EXPECT_EQ(root_ports(&module::rp_entry::path_max), "512 2048 ");
    EXPECT_EQ(said({"E0"}),
              expand("E0 init_rp_mps_max(), add_rp_entry(B0:D2:F0, 256) failed, {12}\n"));
}

TEST_F(MpsLists, AreBuiltBeforeARootPortIsAddedByHand) {
    serve(TREE);
    bridge_rec *const bridge = module::find_root_port(at(3, 1));
    EXPECT_EQ(bridge, machine->bridge(at(0, 1)));
    EXPECT_EQ(module::add_rp_entry(bridge, 128), PCI_OK);
    EXPECT_EQ(root_ports(&module::rp_entry::path_max), "512 256 2048 128 ");
    EXPECT_EQ(module::find_rp_entry(bridge)->path_max, 512U) << "the first one counts";
}

TEST_F(MpsLists, FindTheSmallestPayloadOfAHierarchy) {
    const auto shape = functions("0.1:4>1-4 1.0:5>2-4 2.0:6>3-3 2.1:6>4-4 3.0:0 3.1:0 4.0:0");
    // Codes of the functions in order.
    const std::tuple<std::string, RoutingId, std::uint32_t> rows[] = {
        {"233331", 0, 256},     {"1111111", 0, 256},
        {"0253441", 0, 128},    {"6767676", 0, module::MPS_MAX},
        {"7677675", 0, 4096},   {"333302", at(3), 512},
        {"0144", at(0, 1), 256}};
    for (const auto &[codes, unreadable, path_max] : rows) {
        std::vector<FunctionSpec> functions(shape.begin(), shape.begin() + std::ssize(codes));
        for (std::size_t i = 0; i < functions.size(); ++i)
            functions[i].payload_cap = static_cast<unsigned>(codes[i] - '0');
        serve(functions);
        machine->image.set_filter([this, fault = fail(of(unreadable), 1)](ImageAccess &access) {
            EXPECT_FALSE(is_locked(module::rp_list.lock));
            bridge_rec *const above = machine->machine->bridges().above(access.id);
            EXPECT_TRUE(machine->bridge(access.id) ||
                        (pthread_rwlock_trywrlock(&above->devs_lock) == EBUSY &&
                         !is_locked(above->children_lock) &&
                         is_locked(above->parent->children_lock)));
            return fault(access);
        });
        EXPECT_EQ(module::find_rp_entry(machine->bridge(at(0, 1)))->path_max, path_max);
    }
}

// The second root port's buses are cut short by the first's, and a port below has a wrong class.
TEST_F(MpsLists, CountWhatIsBehindBridgesWithWrongNumbers) {
    serve({{.id = at(0, 0), .port = 4, .secondary = 5, .payload_cap = 2},
           {.id = at(0, 1), .port = 4, .secondary = 2, .subordinate = 10, .payload_cap = 2},
           {.id = at(2), .port = 5, .secondary = 6, .payload_cap = 2, .class_code = 0x060000},
           {.id = at(6), .port = 6, .secondary = 7, .payload_cap = 2},
           {.id = at(7), .payload_cap = 1}});
    EXPECT_EQ(module::find_rp_entry(machine->bridge(at(0, 1)))->path_max, 256U);
    EXPECT_EQ(
        replaced(said({"mps(B6", "bridge B6", "for EP"}), std::to_string(module::MPS_MAX), "MAX"),
        "D3 find_rp_mps(B6:D0:F0, entry=MAX)\n"
        "D3 find_rp_mps, path_max updated from MAX to 512 for bridge B6:D0:F0\n"
        "D3 find_rp_mps, path_max updated from 512 to 256 for EP B7:D0:F0\n");
    EXPECT_EQ(module::mps_find_entry(at(7))->rp->bridge, machine->bridge(at(0, 1)));

    // Either of the two ports with bus 5 may lead there, or the one on bus 1.
    for (const unsigned code : {0U, 1U}) {
        std::string ports = "0.0:4>5-5=3 0.1:4>5-6=2 0.2:4>1-5=4 1.0:6>5-5=0 5.0:0>0-0=3";
        serve(functions(code == 0 ? ports : replaced(replaced(ports, "6=2", "6=1"), "5=0", "5=3")));
        EXPECT_EQ(module::mps_find_entry(at(5))->rp->path_max, 128U << code);
    }
}

}  // namespace host::tests
