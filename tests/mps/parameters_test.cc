// MPS=<endpoint>:<size>: what is requested of whom.
#include "features/mps/parameters.h"

#include "tests/mps/mps_test.h"

namespace host::tests {

using MpsParameters = MpsTest;

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
        serve(TREE);
        for (std::string value : values) {
            const std::string line = "I2 Add record 'mPs=" + value + "', {0}\n";
            module::param_parse_mps("mPs", value.data(), nullptr);
            EXPECT_EQ(said({"mPs"}), expand(line));
        }
        EXPECT_EQ(requested(), list);
    }
}

}  // namespace host::tests
