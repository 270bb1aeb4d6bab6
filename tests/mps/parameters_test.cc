// MPS=<endpoint>:<size>: what is requested of whom, and what is refused.
#include "features/mps/parameters.h"

#include "tests/mps/mps_test.h"

namespace host::tests {

class MpsParameters : public MpsTest {
protected:
    MpsParameters() { serve(TREE); }

    void parse(std::string value) { module::param_parse_mps("mPs", value.data(), nullptr); }
};

TEST_F(MpsParameters, RequestSizesOfEndpointDevices) {
    const std::string everybody = "00:04.0=$ 03:00.0=$ 04:00.0=$ 05:00.0=$ 06:00.0=$ 07:00.0=$ "
                                  "41:00.0=$ ";
    const std::pair<std::vector<std::string>, std::string> rows[] = {
        {{"3.0.0:256", "aLl:MaX"}, replaced(everybody, "$", "4294967295")},
        {{"3.0.0:256", "5.0.0:512", "3.0.1:384"}, "03:00.0=384 05:00.0=512 "},
        {{"3.0.1:0x80", "4.130:4096"}, "03:00.0=128 04:00.0=4096 "},
        {{"0101.0.0:0400", "0X5.0.00:128"}, "05:00.0=128 41:00.0=256 "},
        {{"::5..0.0.x::256::junk"}, "05:00.0=256 "},
        {{"5.0.0:4294967424"}, "05:00.0=128 "},
        {{"4.0.5:256", "0.5.0:256", "08.5.0:256", "3.1.2:256"}, ""},  // endpoints without an entry
    };
    for (const auto &[values, list] : rows) {
        reset();
        for (const std::string &value : values) {
            parse(value);
            EXPECT_EQ(said({"mPs"}), expand("I2 Add record 'mPs=" + value + "', {0}\n"));
        }
        EXPECT_EQ(requested(), list);
    }
}

TEST_F(MpsParameters, AreAnErrorWithoutMemoryForTheirText) {
    for (const unsigned call : {1U, 2U}) {
        fail_calls(call, call);
        parse("5.0.0:256");
        fail_calls(0);
        EXPECT_EQ(messages(),
                  expand("E0 param_parse_mps, (param '5.0.0:256') {12}, ignoring record\n"));
    }
    EXPECT_EQ(requested(), "");
}

TEST_F(MpsParameters, AreRefusedWhole) {
    const std::tuple<std::string, std::vector<std::string>> rows[] = {
        {"Invalid MPS parameter value '$v', both fields required",
         {"all", "max", ":256", "", "::", "3.0.0:"}},
        {"(param '$v') bad EP bus value '$e', ignoring record",
         {"256.0.0:256", "x.0.0:256", ".:256", "-1.0.0:256", "4294967296.0.0:256", "256.0.0:300",
          "99999999999999999999.0.0:256", "x:256", "all.:256"}},
        {"(param '$v') bad EP device value '$e', ignoring record",
         {"3.32.0:256", "3.y.0:256", "3.y.z:256", "3.4294967296.0:256", "3.-1.8:256"}},
        {"(param '$v') bad EP function value '$e', ignoring record",
         {"3.y:256", "3.256:256", "4.4294967296:256", "3.0.8:256", "3.0.z:256", "3.0.-1:300"}},
        {"(param '$v') bad mps value '$m', ignoring record",
         {"3.0.0:300", "3.0.0:0", "3.0.0:abc", "3.0.0:8192", "3.0.0:127", "3.0.0:+0B400",
          "3.0.0:0b400", "all:-1", "all:4224", "3.0.0:99999999999999999999", "3.0.0:maximum"}},
        // No address, a bridge, no such function, no ARI function.
        {"", {"3:256", "3:300", "0.1.0:256", "9.0.0:256", "4.9:256", "5.0:256"}}};
    for (const auto &[pattern, values] : rows)
        for (const std::string &value : values) {
            const std::size_t colon = value.find(':');
            std::string message = replaced(pattern, "$v", value);
            message = replaced(message, "$e", value.substr(0, colon));
            message = replaced(message, "$m", value.substr(colon + 1));
            parse(value);
            EXPECT_EQ(messages_but_debug(),
                      message.empty() ? "" : "E0 param_parse_mps, " + message + '\n');
            EXPECT_EQ(feature.list.count, 0U) << value << " reached the list";
        }
}

}  // namespace host::tests
