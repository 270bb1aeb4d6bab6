// ECRC=<functions>:<generation>:<checking>: what is recorded for whom.
#include "features/ecrc/parameters.h"

#include "tests/module/ecrc_test.h"

namespace host::tests {

// Bus 2 is below a port with ARI Forwarding Enable set; bus 3 is another server's; functions
// without the AER capability come first and last.
const std::vector<FunctionSpec> MACHINE = [] {
    auto all = functions("0.0:- 0.2:4>2-2 0.3:4>3-3 0.4:4>4-4 0.1:4>1-1 1.0.0:0 1.0.1:0 1.31.7:0 "
                         "3.0:0 2.0:0 2.2.1:0 4.0:0");
    all[1].ari_forwarding = true;
    for (std::size_t i = 4; i < 11; ++i)
        all[i].aer = BOTH_CAP;
    all[9].next_ari = 17, all[10].next_ari = 0;
    return all;
}();

class EcrcParameters : public EcrcTest {
protected:
    EcrcParameters() {
        managed[3] = false;
        serve(MACHINE, managed);
    }

    // Parses a value with the module's parser, which may cut it up.
    void parse(std::string value, unsigned fail_entry = 0) {
        reset();
        fail_calloc(fail_entry, sizeof(module::ecrc_entry));
        module::param_parse_ecrc("eCrC", value.data(), &feature);
    }

    ManagedBuses managed = ManagedBuses(256, true);
};

TEST_F(EcrcParameters, SelectFunctions) {
    const std::string all = "0.1.0:+:- 1.0.0:+:- 1.0.1:+:- 1.31.7:+:- 2.0:+:- 2.17:+:- ";
    const std::tuple<std::string, std::string, int> rows[] = {
        {"all:+:-", all, 0},
        {"AlL:+:-:ignored", all, 0},
        {"1.*:+:+", "1.0.0:+:+ 1.0.1:+:+ ", 0},
        {"2.*x:=:-", "2.0:=:- 2.17:=:- ", 0},
        {"2.17:+:=", "2.17:+:= ", 0},
        {"0.255:+:+", "", 48},
        {"1.0.*:-:+", "1.0.0:-:+ 1.0.1:-:+ ", 0},
        {"1.0x1f.*x:-:-", "1.31.7:-:- ", 0},
        {"0X1.037.07:=:-", "1.31.7:=:- ", 0},
        {"010.0.0:+:+", "", 48},
        {"::1..0.1.x::+y::=z", "1.0.1:+:= ", 0}};
    for (const auto &[value, list, status] : rows) {
        parse(value);
        EXPECT_EQ(recorded(), list);
        EXPECT_EQ(messages_but_debug(),
                  expand("I2 Add record 'eCrC=" + value + "', {" + std::to_string(status) + "}\n"));
    }
}

TEST_F(EcrcParameters, ThatChangeNothingAreIgnored) {
    parse("all:=:=");
    EXPECT_EQ(messages(), "W2 ignoring record which doesn't change anything\n");
    EXPECT_EQ(recorded(), "");
}

TEST_F(EcrcParameters, StopAtTheFirstErrorThatIsNoMissingCapability) {
    parse("3.0.0:+:+");  // another server's
    EXPECT_EQ(recorded() + messages_but_debug(), "");
    parse("1:-:-", 3);
    EXPECT_EQ(recorded(), "1.0.0:-:- 1.0.1:-:- ");
    EXPECT_EQ(messages_but_debug(), expand("I2 Add record 'eCrC=1:-:-', {12}\n"));
}

}  // namespace host::tests
