// The host lets no module bring a function above the port above it.
#include <bit>

#include "host/exports/hooks.h"
#include "host/exports/payload_guard.h"
#include "module/base/capability_call.h"
#include "platform/buscfg.h"
#include "tests/mps/mps_test.h"

namespace host::tests {

class MpsGuard : public MpsTest {
protected:
    // Sizes are field values, a digit for each function.
    void set_sizes(const std::vector<FunctionSpec> &functions, const std::string &codes) {
        for (std::size_t i = 0; i < functions.size(); ++i)
            machine->image.write(functions[i].id, DEVCTL_AT, 2,
                                 static_cast<unsigned>(codes[i] - '0') * 32U);
    }
    std::string sizes(const std::vector<FunctionSpec> &functions) {
        std::string codes;
        for (const FunctionSpec &function : functions)
            codes += std::to_string(std::countr_zero(payload(function.id)) - 7);
        return codes;
    }
};

const auto SWITCH =
    functions("0.1:4>1-4=2 1.0:5>2-4=2 2.0:6>3-3=2 2.1:6>4-4=2 3.0:0>0-0=2 4.0:0>0-0=2");
const auto CONVENTIONAL = functions("0.1:4>1-2=2 1.0:->2-2 2.0:0>0-0=2");
// No register tells which of the two bridges leads to bus 1.
const auto ONE_BUS_TWICE = functions("0.1:4>1-1=2 0.2:4>1-1=2 1.0:0>0-0=2");

static AccessFilter keeps_512(RoutingId id) {
    return [id](ImageAccess &access) {
        if (access.is_write && writes_to(id, DEVCTL_AT)(access))
            access.value = 2U << 5;
        return PCI_OK;
    };
}

// Bus 4 is not managed. Where a function is reset, a fault comes after start-up, and another
// program sets 02:00.0 to 128.
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
        set_sizes(row.machine, row.before);
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
        EXPECT_EQ(sizes(row.machine), row.after);
    }
}

// The module sets the path to 03:00.0: the first three, and the seventh.
TEST_F(MpsGuard, CompletesHierarchiesOfOneSize) {
    const std::string switches =
        "0.1:4>1-10=2 1.0:5>2-10=2 2.0:6>3-3=2 2.1:6>4-4=2 2.2:6>5-8=2 2.3:6>9-10=2 3.0:0>0-0=2 "
        "4.0:0>0-0=2 5.0:5>6-8=2 6.0:6>7-7=2 6.1:6>8-8=2 9.0:7>10-10=2 10.0:-";
    const auto reset = [&](RoutingId id) { machine->image.reset(id); };
    const auto hook = [](std::uint32_t type, RoutingId id) {
        call_reset_hooks(BUSCFG_HOOK_POST_RESET, type, id, 0);
    };
    const auto set_to_256 = [&](RoutingId id) {
        std::uint16_t devctl = 1 << 5;
        module::call(machine->bridge(id)->pcie_cap, &pcie_cap_ops_t::write_devctl, 0U, &devctl);
    };
    const AccessFilter neither_there_nor_back = [](ImageAccess &access) {
        const bool is_back = writes_to(at(6, 0), DEVCTL_AT)(access) && access.value == 0;
        return writes_to(at(6, 1), DEVCTL_AT)(access) || is_back ? PCI_ERR_IO : PCI_OK;
    };
    const auto nothing = [] {};
    const std::string low = "0000000000000";
    const struct {
        std::string name, after, before;
        std::function<void()> then = [] {};
        AccessFilter fault = {};
        std::string request = "all:max";
        unsigned unmanaged = 4;
        bool complete = true;
        std::string not_this = "10.0:-", but_this = "10.0:-";
    } rows[] = {
        {"a function below has less", "2220222022220", low},
        {"all below has as much", "2222222222220", "0000000200000"},
        {"as after an earlier start", "2220222022220", "2220002000000"},
        {"again", "2220222022220", low, [&] { reset(at(9)), hook(RESET_TYPE_BUS, at(2, 3)); }},
        {"not the module's", "2200222022220", low,
         [&] { reset(at(2)), hook(RESET_TYPE_FLR, at(3)); }},
        {"several sizes", "2210221022200", low, [&] { reset(at(9)), set_to_256(at(2)); }},
        {"the root port is lowered", "0220222022200", low,
         [&] { reset(at(9)), reset(at(0, 1)), hook(RESET_TYPE_FLR, at(3)); }},
        {"fails", "2220022000020", low, nothing, fail(writes_to(at(6, 1), DEVCTL_AT), 1)},
        {"cannot be set back", "2220222022020", low, nothing, neither_there_nor_back},
        {"nobody asks", "2000000000000", "2000000000000", nothing, {}, "9.0.0:max"},
        {"a bus is not managed", "2222022200020", low, nothing, {}, "all:max", 6},
        {"no option", "2220002000000", low, nothing, {}, "all:max", 4, false},
        {"one bus twice",
         "2220022000020",
         low,
         nothing,
         {},
         "all:max",
         4,
         true,
         "2.1:6>4-4",
         "2.1:6>5-8"},
        {"the bus above twice",
         "2220002000002",
         "0000000000002",
         nothing,
         {},
         "all:max",
         4,
         true,
         "10.0:-",
         "11.0:4>2-2=2"}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        const auto functions = tests::functions(replaced(switches, row.not_this, row.but_this));
        ManagedBuses managed(256, true);
        managed[row.unmanaged] = false;
        serve(functions, managed, row.complete);
        set_sizes(functions, row.before);
        machine->image.set_filter(row.fault);
        start_with("MPS=" + row.request);
        keep_payloads_in_bounds();
        row.then();
        keep_payloads_in_bounds();
        machine->image.set_filter({});
        EXPECT_EQ(sizes(functions), row.after);
    }
}

TEST_F(MpsGuard, ReportsFunctionsThatDifferFromTheirPorts) {
    const struct {
        std::string name, at_start, now;
        RoutingId come;
        unsigned errors;
    } rows[] = {{"all agree", "222222", "222222", at(3), 0},
                {"lower than its port", "222222", "222202", at(3), 1},
                {"as low as a port that is too low", "220222", "220202", at(3), 1},
                {"above its port", "222122", "222122", at(4), 1},
                {"another, as it was at start", "222201", "222201", at(3), 1},
                {"others, whose port is lowered", "222222", "220222", at(4), 2},
                {"a lowered root port", "222222", "022222", at(4), 1}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        serve(SWITCH);
        set_sizes(SWITCH, row.at_start);
        warn_about_payloads_found();
        set_sizes(SWITCH, row.now);
        const auto before = log_counts().error;
        report_payload_mismatches(std::vector{row.come});
        EXPECT_EQ(log_counts().error - before, row.errors);
    }
}

// Switch ports on two buses, of which each claims the bus of the other.
TEST_F(MpsGuard, EndsWherePortsAreAboveEachOther) {
    const auto all = functions("0.1:4>1-1=2 0.2:4>2-2=2 1.0:6>2-2=2 1.1:0=2 2.0:6>1-1=2");
    serve(all);
    set_sizes(all, "22000");
    const auto before = log_counts().error;
    report_payload_mismatches(std::vector{at(1, 1)});
    EXPECT_EQ(log_counts().error, before);
}

// Its other fields can still be written.
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
