// Requests become register settings at start-up: one size for each hierarchy, in two passes.
#include "features/mps/parameters.h"
#include "platform/buscfg.h"
#include "platform/pci_access.h"
#include "tests/mps/mps_test.h"

namespace host::tests {

class MpsStartUp : public MpsTest {
protected:
    // Makes a machine with requests ("all:max 3.0.0:256") and drops its messages.
    void request(const std::vector<FunctionSpec> &functions, const std::string &requests) {
        serve(functions);
        std::istringstream values(requests);
        for (std::string value; values >> value;)
            module::param_parse_mps("MPS", value.data(), &feature);
        messages();
    }

    static AccessFilter broken(RoutingId id, unsigned last = FOREVER) {
        return fail(writes_to(id, DEVCTL_AT), 1, last);
    }
};

TEST_F(MpsStartUp, GivesEachHierarchyOneSize) {
    const std::string to_3 = "00:01.0 01:00.0 02:00.0 ", of_3 = "03:00.0 03:00.1 ";
    const std::string to_4 = "02:01.0 04:00.5 04:10.2 ", both = to_3 + of_3 + to_4;
    const std::string both_again = to_3 + of_3 + "04:00.5 04:10.2 ";  // 02:01.0 was never changed
    const struct {
        std::string name, requests, writes, current;
        AccessFilter fault = {};
        pci_err_t result = 0;
    } rows[] = {{"the first that fits", "3.0.0:640 4.5:256",
                 "=256 00:01.0 01:00.0 " + to_4 + "02:00.0 " + of_3, "256 0 0 "},
                {"the most, everywhere", "all:max",
                 "=512 " + to_3 + of_3 + "=256 00:02.0 05:00.0 =2048 40:01.0 41:00.0 =512 " + to_4,
                 "512 256 2048 "},
                {"no power of two", "3.0.0:384", "=512 " + to_3 + "=128 " + both_again, "128 0 0 "},
                {"a function fails", "3.0.0:256", "=256 " + both, "256 0 0 ", broken(at(3, 0, 1))},
                {"an endpoint fails once", "3.0.0:256",
                 "=256 " + to_3 + "03:00.0 =128 " + both_again, "128 0 0 ", broken(at(3), 1)},
                {"an endpoint fails", "5.0.0:256", "=256 00:02.0 05:00.0 =128 00:02.0 05:00.0 ",
                 "0 128 0 ", broken(at(5)), 5},
                {"a refusal after a failure", "5.0.0:256 65.0.0:4096",
                 "=256 00:02.0 05:00.0 =128 00:02.0 05:00.0 ", "0 128 0 ", broken(at(5)), 5},
                {"the bridge above fails", "3.0.0:256",
                 "=256 " + to_3 + "=128 " + to_3 + "04:00.5 04:10.2 ", "128 0 0 ",
                 broken(at(2, 0))},
                {"the root port fails", "3.0.0:256",
                 "=256 00:01.0 02:00.0 " + of_3 + "00:01.0 " + to_4, "256 0 0 ", broken(at(0, 1))},
                {"the second pass fails", "3.0.0:256", "=256 " + both, "256 0 0 ",
                 broken(ari_at(4, 130)), 5}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        request(TREE, row.requests);
        record(row.fault);
        buscfg_t *const hosts_own = std::exchange(buscfg, nullptr);
        EXPECT_EQ(module::mps_init(&feature), 420U);
        buscfg = hosts_own;
        EXPECT_EQ(locked, 0U) << "nothing is touched without the hooks";
        EXPECT_EQ(module::mps_init(&feature), row.result);
        EXPECT_EQ(writes(), row.writes);
        EXPECT_EQ(root_ports(&module::rp_entry::cur_mps), row.current);
        EXPECT_EQ(unlocked, 0U);
        EXPECT_FALSE(is_locked(feature.list.lock));
    }
}

// The first request is above the limit, the second one's endpoint fails, and so does the third's,
// which has no request.
TEST_F(MpsStartUp, TellsWhatBecomesOfEveryRequest) {
    auto all = functions("0.1:4>1-2=1 1.0:5>2-2=1 2.0:0>0-0=1 2.1:0>0-0=1 2.2:0>0-0=1");
    all.back().payload_set = 1;
    request(all, "2.0.0:384 2.1.0:max");
    record([](ImageAccess &access) { return access.is_write && access.id > at(2) ? 5U : 0U; });
    EXPECT_EQ(module::mps_init(&feature), 5U);
    EXPECT_EQ(
        said({"buscfg", "init", "MPS value"}),
        expand("D1 Lookup of server sym buscfg ok\n"
               "D2 install_buscfg_hooks(), add post insertion hook, {0}\n"
               "D2 install_buscfg_hooks(), add pre removal hook, {0}\n"
               "D2 install_buscfg_hooks(), add post reset hook, {0}\n"
               "I1 mps_init, path max for B2:D0:F0 is 256\n"
               "W1 mps_init, MPS setting of 384 for EP B2:D0:F0 ignored. Path max is 256\n"
               "I1 mps_init, path max for B2:D1:F0 is 256\n"
               "E0 Unable to set MPS value 256 for B2:D1:Fz, {5}, restore default {0}\n"
               "W1 mps_init, EP B2:D2:F0 shares a common path element and MPS is already set to "
               "128. Ignoring record\n"
               "D2 mps_init, no processing required for mps_entry B2:D2:F0\n"
               "I1 set MPS value 128 for B2:D0:Fz, {0}\n"
               "E0 Unable to set MPS value 128 for B2:D2:Fz, {5}\n"));
}

TEST_F(MpsStartUp, SetsTheSizeOfOnePathWhenItCan) {
    const std::tuple<RoutingId, unsigned, pci_err_t> rows[] = {
        {at(0, 4), 256, 19}, {at(3), 300, 22}, {at(3), module::MPS_MAX, 0}};
    serve(TREE);
    for (const auto &[id, size, result] : rows)
        EXPECT_EQ(module::mps_set_ep_hierarchy(module::mps_find_entry(id), size), result);
    EXPECT_EQ(payload(at(3)), 512U);
}

}  // namespace host::tests
