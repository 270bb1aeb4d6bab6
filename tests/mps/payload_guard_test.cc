// The host lets no function stand above the port above it through what modules write.
#include <bit>

#include "host/exports/hooks.h"
#include "host/exports/payload_guard.h"
#include "module/base/capability_call.h"
#include "platform/buscfg.h"
#include "tests/mps/mps_test.h"

namespace host::tests {

using MpsGuard = MpsTest;

const auto SWITCH =
    functions("0.1:4>1-4=2 1.0:5>2-4=2 2.0:6>3-3=2 2.1:6>4-4=2 3.0:0>0-0=2 4.0:0>0-0=2");
const auto CONVENTIONAL = functions("0.1:4>1-2=2 1.0:->2-2 2.0:0>0-0=2");
// Which of the two leads to bus 1 no register tells.
const auto ONE_BUS_TWICE = functions("0.1:4>1-1=2 0.2:4>1-1=2 1.0:0>0-0=2");

static AccessFilter keeps_512(RoutingId id) {
    return [id](ImageAccess &access) {
        if (access.is_write && writes_to(id, DEVCTL_AT)(access))
            access.value = 2U << 5;
        return PCI_OK;
    };
}

// Sizes are codes, a digit a function. Bus 4 is not managed. Where a function is reset, a fault
// comes after start-up, and so does somebody who sets 02:00.0 to 128.
TEST_F(MpsGuard, LeavesNoFunctionAboveItsPort) {
    const auto fails = [](RoutingId id, unsigned last = FOREVER) {
        return fail(writes_to(id, DEVCTL_AT), 1, last);
    };
    const AccessFilter unreadable = fail(reads_of(at(2, 0), DEVCTL_AT), 1);
    const struct {
        std::string name, before, request, after;
        bool in_bounds = true;
        AccessFilter fault = {};
        RoutingId reset = 0;
        std::vector<FunctionSpec> machine = SWITCH;
    } rows[] = {{"what modules leave", "222222", "3.0.0:256", "111111"},
                {"after a failure", "222222", "3.0.0:256", "000000", true, fails(at(3), 1)},
                {"fails once", "222222", "3.0.0:256", "111111", true, fails(at(4), 1)},
                {"fails for good", "222222", "3.0.0:256", "111112", false, fails(at(4))},
                {"reads back more", "222222", "3.0.0:256", "111112", false, keeps_512(at(4))},
                {"a port does not take it", "000000", "3.0.0:max", "000000", true, fails(at(1))},
                {"found so", "222122", "3.0.0:max", "222122"},
                {"a port is lowered meanwhile", "222222", "3.0.0:max", "220202", true, {}, at(3)},
                {"a port cannot be read", "222222", "3.0.0:max", "220202", true, unreadable, at(3)},
                {"a conventional bridge", "202", "2.0.0:256", "000", true, {}, 0, CONVENTIONAL},
                {"one bus twice", "000", "1.0.0:max", "000", true, {}, 0, ONE_BUS_TWICE}};
    ManagedBuses managed(256, true);
    managed[4] = false;
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        serve(row.machine, managed);
        for (std::size_t i = 0; i < row.machine.size(); ++i)
            machine->image.write(row.machine[i].id, DEVCTL_AT, 2,
                                 static_cast<unsigned>(row.before[i] - '0') * 32U);
        machine->image.set_filter(row.reset ? AccessFilter() : row.fault);
        start_with("MPS=" + row.request);
        if (row.reset) {
            machine->image.write(at(2, 0), DEVCTL_AT, 2, 0);
            machine->image.reset(row.reset);
            machine->image.set_filter(row.fault);
            call_reset_hooks(BUSCFG_HOOK_POST_RESET, RESET_TYPE_FLR, row.reset, 0);
        }
        EXPECT_EQ(keep_payloads_in_bounds(), row.in_bounds);
        machine->image.set_filter({});
        std::string after;
        for (const FunctionSpec &function : row.machine)
            after += std::to_string(std::countr_zero(payload(function.id)) - 7);
        EXPECT_EQ(after, row.after);
    }
}

// Its other fields can be written all the same.
TEST_F(MpsGuard, RefusesNoSizeThatAFunctionHas) {
    serve({{.id = at(0, 1), .port = 4, .secondary = 1, .payload_cap = 1},
           {.id = at(1), .port = 5, .secondary = 2, .payload_cap = 1, .payload_set = 2}});
    pcie_cap_t *const cap = machine->bridge(at(1))->pcie_cap;
    for (const auto &[value, result] : {std::pair{0x5040, 0U}, {0x5020, 22U}, {0x5000, 0U}}) {
        auto devctl = static_cast<std::uint16_t>(value);
        EXPECT_EQ(module::call(cap, &pcie_cap_ops_t::write_devctl, 0U, &devctl), result);
        EXPECT_EQ(machine->get(at(1), DEVCTL_AT, 2) == devctl, result == 0);
    }
}

}  // namespace host::tests
