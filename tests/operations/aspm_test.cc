// ASPM: the states that a link may use, and switching them on and off at both of its ends.
#include "features/aspm/latency.h"
#include "features/aspm/link_control.h"
#include "tests/operations/operations_test.h"

namespace host::tests {

// The number behind "=" is Device Capabilities in octal: the values of Endpoint L1 and L0s
// Acceptable Latency, then 00.
const std::string TREE =
    "0.1:4>1-12 0.2:4>13-14 0.3:4>15-15 0.4:4>16-16=0,3ff 0.5:4>17-17 0.6:4>18-19 1.0:0>0-0=7700 "
    "1.1:6>2-3 1.2:6>4-5 2.0:6>3-3 3.0:0>0-0=100 3.1:- 3.2:0>0-0=2000 3.3:0>0-0=2000 "
    "4.0:0>0-0=7700 4.1:4>5-5 13.0:7>14-14 17.0:0>0-0=0,3ff 18.0:->19-19 19.0:- 64.1:8>65-65 "
    "65.0:0>0-0=3400";

class Aspm : public OperationsTest {
protected:
    // A link from a port with ASPM Control 2 to a device with 1.
    bridge_rec *serve_link(std::uint32_t up, std::uint32_t down, std::uint32_t accepted) {
        serve({{.id = at(0, 1), .port = 4, .secondary = 1, .link_cap = up},
               {.id = at(1), .payload_cap = accepted, .link_cap = down}});
        machine->image.write(at(0, 1), LINKCTL_AT, 2, 0x0FCA);
        machine->image.write(at(1), LINKCTL_AT, 2, 0x0041);
        return machine->bridge(at(0, 1));
    }

    char level(RoutingId id) { return "0123"[machine->get(id, LINKCTL_AT, 2) & 3]; }

    // Returns the latencies that enabling compares: "63/999 64/1000 ", first the exit latencies of
    // L0s and L1, then the accepted ones.
    std::string latencies(bridge_rec *bridge) {
        module::_enable_aspm(bridge);
        return replace_all(messages(), "(?:.*\n)*.*exit latencies = (.*), .* = (.*)\n(?:.*\n)*",
                           "$1 $2 ");
    }
};

TEST_F(Aspm, LatenciesAreThoseOfTheCodesAtTheSlowerEnd) {
    std::string said;
    for (unsigned l0s = 0, l1 = 7; l0s < 8; ++l0s, --l1) {
        const unsigned fast = 0xC00, slow = fast | l0s << 12 | l1 << 15;
        said += latencies(serve_link(slow, fast, l0s << 6 | l1 << 9));
        EXPECT_TRUE(said.ends_with(latencies(serve_link(fast, slow, l0s << 6 | l1 << 9))));
    }
    EXPECT_EQ(said, "63/64001 64/4294967295 127/64000 128/64000 255/31999 256/32000 511/15999 "
                    "512/16000 999/7999 1000/8000 1999/3999 2000/4000 4000/1999 4000/2000 "
                    "4001/999 4294967295/1000 ");
}

// Rows: accepted latencies, then the port's and the device's ASPM Support; the exit latency of each
// state equals what value 6 accepts. ASPM Control was 1.
TEST_F(Aspm, LevelIsWhatBothEndsSupportAndEndpointsAccept) {
    std::string levels;
    for (const unsigned accepted : {06600U, 07500U, 05700U, 05500U})
        for (unsigned supports = 0; supports < 16; ++supports) {
            module::_enable_aspm(serve_link(0x36000 | supports >> 2 << 10,
                                            0x36000 | (supports & 3) << 10, accepted));
            levels += level(at(1));
        }
    EXPECT_EQ(levels, "1111110110221123"
                      "1111100010221022"
                      "1111110110001101"
                      "1111100010001000");
    bridge_rec *const bridge = serve_link(0x36400, 0x36400, 06600);
    machine->image.set_filter(fail(reads_of(at(1), PCIE_AT + pci::LINKCAP), 2));
    module::_enable_aspm(bridge);
    EXPECT_EQ(level(at(1)), '0') << "a latency is not known";
    serve(functions("0.1:4>1-2 1.0:0>0-0=7700 1.1:->2-2"));
    EXPECT_EQ(module::acceptable_ep_latency(machine->bridge(at(0, 1)), 1), 0U);
    // Behind no PCI Express link: a conventional function, and a bridge to conventional PCI.
    const std::string call = "D2 acceptable_ep_latency(B0:D1:F0, 1)";
    const std::tuple<std::string, std::uint32_t, std::string> rows[] = {
        {"0.1:4>1-1 1.2:-", 0,
         "D2 acceptable_ep_latency(), EP device B1:D2:F0 is not PCIe ???\n" + call +
             " returns 0 for EP device B255:D0:F255\n"},
        {"0.1:4>1-2 1.0:7>2-2", ~0U, call + " returns 4294967295 for EP device B1:D0:F0\n"}};
    for (const auto &[functions_in_short, accepted, said] : rows) {
        serve(functions(functions_in_short));
        EXPECT_EQ(module::acceptable_ep_latency(machine->bridge(at(0, 1)), 1), accepted);
        EXPECT_EQ(messages(), call + '\n' + said);
    }
}

// The port is written first to enable, last to disable, and goes back to 0 when enabling fails.
TEST_F(Aspm, EndsOfALinkAreInOrderWhateverFails) {
    const std::string enabling = "8/4c 100/4c 100/4c 8/4c 100/4c 8/4c 100/44 100/44 "
                                 "8/50 8/50=fcb 8/50 100/50 100/50=43 100/50";
    const std::string disabling = "8/4c 100/4c 100/50 100/50=40 100/50 8/50 8/50=fc8 8/50";
    // Rows: the number of the access that ends with 5, then of the allocation that finds no memory;
    // the result, then ASPM Control of port and device.
    const std::tuple<pci_err_t (*)(bridge_rec *), std::string, std::string> rows[] = {
        {module::_enable_aspm, enabling,
         "5:21 5:21 0:00 0:00 0:00 0:00 0:22 0:11 5:01 5:01 5:01 5:01 5:01 5:03 12:21 0:22 0:11 "
         "0:33 "},
        {module::_disable_aspm, disabling, "5:21 0:01 0:01 0:01 0:00 5:20 5:20 5:00 0:01 0:00 "}};
    for (const auto &[operation, expected, outcomes] : rows) {
        const auto count = static_cast<unsigned>(words(expected).size());
        std::string said;
        Words done;
        for (unsigned n = 1; n <= words(outcomes).size(); ++n) {
            bridge_rec *bridge = serve_link(0x36C00, 0x36C00, 06600);
            fail_calloc(n <= count ? 0 : n - count);
            done = accesses(fail([=](auto &) { return n <= count; }, n, n),
                            [&, call = operation] { said += std::to_string(call(bridge)) + ':'; });
            said += {level(at(0, 1)), level(at(1)), ' '};
        }
        EXPECT_EQ(said, outcomes);
        EXPECT_EQ(done, words(expected));
    }
}

// Rows: the fault in the host's records of a root port, which has L0s alone, and of the switch port
// below it. The first endpoint cannot be read; the others accept the same.
TEST_F(Aspm, LinksAreEnabledAsFarAsRecordsTell) {
    static const bdf_t none[] = {BDF_NONE};
    const std::string compared = "D2 find_aspm_level(), exit latency = 63, acceptable latency = $\n"
                                 "D2 find_aspm_level(B0:D1:F0, 1, B1:D1:F0, 3), aspm = ",
                      slow = replaced(compared, "$", "0") + "0\n{0}",
                      good = "128 for EP device B2:D1:F0\n" + replaced(compared, "$", "128");
    const std::pair<void (*)(bridge_rec &, bridge_rec &), std::string> rows[] = {
        {[](auto &port, auto &) { port.num_devs = 0; }, good + "1\n{0}"},
        {[](auto &port, auto &) { port.num_devs = port.num_children = 0; },
         "D2 no downstream device\n{19}"},
        {[](auto &port, auto &) { port.devs = none; }, "D2 no downstream device\n{19}"},
        {[](auto &port, auto &) { port.class_code = HOST_BRIDGE_CLASS; }, "{48}"},
        {[](auto &port, auto &) { port.pcie_cap->head.bdf = BDF_NONE; },
         "D2 unable to determine port type\n{48}"},
        {[](auto &, auto &below) { below.pcie_cap = nullptr; }, slow},
        {[](auto &, auto &below) { below.pcie_cap->head.bdf = BDF_NONE; }, slow},
        {[](auto &, auto &below) { below.num_devs = 0; }, "0, no EP device(s)\n" + slow}};
    for (const auto &[change, said] : rows) {
        serve(functions("0.1:4>1-2=0,400 1.1:6>2-2 2.0:0>0-0=7700 2.1:0>0-0=100 2.2:0>0-0=100"));
        machine->image.set_filter(fail(of(at(2)), 1));
        change(*machine->bridge(at(0, 1)), *machine->bridge(at(1, 1)));
        module::_enable_aspm(machine->bridge(at(0, 1)));
        const std::string others(
            "D1 .*\n|D2 calc.*\n|D2 acceptable_ep_latency\\(B.:D1:F0, 1\\)(\n| "
            "returns )|I1 .* bridge B0:D1:F0, |\n$");
        EXPECT_EQ(replace_all(messages(), others, ""), expand(said));
    }
}

TEST_F(Aspm, LinksAreVisitedFromTheTopDown) {
    // Results in < > are those of enabling, which also compares latencies; disabling ends with 0.
    const std::string walk =
        "0.0 {48} 0.1 [63/2999 128/4000]{0} 1.1 [63/1999 128/4000]{0} 2.0 [63/999 128/4000]{0} "
        "1.2 [63/1999 0/0]{0} 4.1 D2 no downstream device\n<19> 0.2 [63/1999 4294967295/4294967295]"
        "{0} 13.0 D2 unsupported downstream port type 7\n{48} 0.3 D2 no downstream device\n<19> "
        "0.4 D2 ASPM not supported by upstream device\n{48} 0.5 D2 ASPM not supported by "
        "downstream device\n<48> 0.6 D2 downstream device is not PCIe\n<48> 18.0 {48} 64.0 {48} "
        "64.1 [63/999 1000/8000]{0} ";
    const std::string off = replace_all(walk, "<..>", "{0}");
    expect(
        {{module::enable_aspm_feature, BDF_NONE, 0, replace_all(walk, "<(..)>", "{$1}")},
         {module::disable_aspm_feature, BDF_NONE, 0, replace_all(off, "\\[.*?\\]", "")},
         {module::enable_aspm_feature, at(1, 1), 0, "[63/1999 128/4000]=1.1 {0} "},
         {module::disable_aspm_feature, at(65), 0, "=64.1 {0} "},
         {module::enable_aspm_feature, at(0, 9), 48, "=0.0 {48} "},
         {module::enable_aspm_feature, at(99), 19, ""},
         {module::disable_aspm_feature, at(99), 19, ""}},
        TREE,
        {{"D2 find_aspm_level\\(\\), .* = (.*), .* = (.*)\n", "[$1 $2]"},
         {"D1 .*\n|D2 (calc|accept|find).*\n", ""},
         {"I1 _(en|dis)able_aspm\\(\\) on PCIe link for bridge B(.*):D(.*):F0, (.*)\n",
          "=$2.$3 $4 "},
         {"D0 (?:en|dis)able_aspm\\(B(.*):D(.*):F0\\)\n(D2.*\n|\\[.*\\])?=\\1.\\2 ", "$1.$2 $3"}});
}

}  // namespace host::tests
