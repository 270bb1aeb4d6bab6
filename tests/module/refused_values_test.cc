// Values that the parsers of the feature file refuse: nothing is recorded, and a message says why.
#include <utility>

#include "features/ecrc/parameters.h"
#include "features/mps/parameters.h"
#include "platform/log.h"
#include "tests/mps/mps_test.h"

namespace host::tests {

// The message about values, without the severity and the parser: "$v" is the value, "$1" its first
// field, "$2" the rest.
struct Refusal {
    std::string said;
    std::vector<std::string> values;
};

class RefusedValues : public MpsTest {
protected:
    RefusedValues() { serve(TREE); }

    void expect(const std::string &keyword, const std::vector<Refusal> &refusals) {
        const auto row = keyword == "mps" ? module::ROW_MPS : module::ROW_ECRC;
        for (const auto &[pattern, values] : refusals)
            for (const std::string &value : values) {
                const std::size_t colon = value.find(':');
                std::string said = replaced(pattern, "$v", value);
                said = replaced(said, "$1", value.substr(0, colon));
                said = replaced(said, "$2", value.substr(colon + 1));
                if (!said.empty())
                    said = "E0 param_parse_" + keyword + ", " + expand(said) + '\n';
                std::string cut_up = value;
                module::feature_list[row].param_parse("", cut_up.data(), nullptr);
                EXPECT_EQ(messages_but_debug(), said);
                EXPECT_EQ(module::feature_list[row].list.count, 0U) << value;
            }
    }
};

TEST_F(RefusedValues, OfPayloadSizes) {
    expect("mps",
           {{"Invalid MPS parameter value '$v', both fields required",
             {"all", "max", ":256", "", "::", "3.0.0:"}},
            {"(param '$v') bad EP bus value '$1', ignoring record",
             {"256.0.0:256", "x.0.0:256", ".:256", "-1.0.0:256", "4294967296.0.0:256",
              "256.0.0:300", "99999999999999999999.0.0:256", "x:256", "all.:256"}},
            {"(param '$v') bad EP device value '$1', ignoring record",
             {"3.32.0:256", "3.y.0:256", "3.y.z:256", "3.4294967296.0:256", "3.-1.8:256"}},
            {"(param '$v') bad EP function value '$1', ignoring record",
             {"3.y:256", "3.256:256", "4.4294967296:256", "3.0.8:256", "3.0.z:256", "3.0.-1:300"}},
            {"(param '$v') bad mps value '$2', ignoring record",
             {"3.0.0:300", "3.0.0:0", "3.0.0:abc", "3.0.0:8192", "3.0.0:127", "3.0.0:+0B400",
              "3.0.0:0b400", "all:-1", "all:4224", "3.0.0:99999999999999999999", "3.0.0:maximum"}},
            // No address, a bridge, no such function, no ARI function.
            {"", {"3:256", "3:300", "0.1.0:256", "9.0.0:256", "4.9:256", "5.0:256"}}});
}

TEST_F(RefusedValues, OfEcrc) {
    expect("ecrc",
           {{"Invalid ECRC parameter value '$v', all fields required", {"1.0.0:+", "", "::+::+:"}},
            {"(param '$v') bad BDF bus value '$1', ignoring record",
             {"256:+:+", "x:+:+", "allx:+:+", ".:+:+", "-1.0.0:+:+", "4294967296.0.0:+:+"}},
            {"(param '$v') bad BDF value '$1', ignoring record",
             {"0.g:+:+", "0.G:+:+", "0.z:+:+", "0.+1.0:+:+", "0.*.1:+:+"}},
            {"(param '$v') bad BDF device value '$1', ignoring record",
             {"0.32.0:+:+", "0.a.*:+:+", "0.A.0:+:+", "0.F.*:+:+"}},
            {"(param '$v') bad BDF function value '$1', ignoring record",
             {"0.256:+:+", "0.f:+:+", "0.0.8:+:+", "0.0.x:+:+"}},
            {"(param '$v') bad ECRC gen or check values 'y'/'+', ignoring record", {"1.0.0:y:+"}},
            {"(param '$v') bad ECRC gen or check values '='/'1x', ignoring record", {"all:=:1x"}}});
}

// A log handle gets formats, which tell one kind of message from another also where the text is
// alike.
TEST_F(RefusedValues, HaveTheFormatOfTheirKind) {
    static std::string format;
    log_handle_t handle = {.log_output = [](int, int, int, const char *given, va_list) {
        format = given;
        return 0;
    }};
    log_handle_t *const usual = std::exchange(pci_slog, &handle);
    for (const auto &[row, name] : {std::pair(module::ROW_MPS, "EP"), {module::ROW_ECRC, "BDF"}})
        for (const auto &[address, what] : {std::pair("3.0.8", "function"), {"3.256", "%s"}}) {
            std::string value = std::string(address) + ":+:+";
            module::feature_list[row].param_parse("", value.data(), nullptr);
            EXPECT_EQ(format, "%s, (param '%s') bad " + std::string(name) + ' ' + what +
                                  " value '%s', ignoring record");
        }
    pci_slog = usual;
}

TEST_F(RefusedValues, AreThoseWithoutMemoryForTheirText) {
    for (const auto &[keyword, value] : {std::pair("mps", "5.0.0:256"), {"ecrc", "1.0.0:+:+"}})
        for (const unsigned call : {1U, 2U}) {
            fail_calls(call, call);
            expect(keyword, {{"(param '$v') {12}, ignoring record", {value}}});
            fail_calls(0);
        }
}

}  // namespace host::tests
