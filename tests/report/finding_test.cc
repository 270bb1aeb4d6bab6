// Findings, from what registers of small machines hold.
#include "host/report/finding.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "host/exports/payload_sizes.h"
#include "host/exports/serve.h"
#include "host/report/report.h"
#include "tests/support/test_machine.h"

namespace host::tests {
namespace {

struct Row {
    const char *machine;  // see functions()
    // "BUS.DEVICE.FUNCTION=SUPPORTED,PAYLOAD,READ_REQUEST", codes; others support 1 and have 0.
    const char *settings;
    std::vector<std::string> findings;  // "severity code: text"
};

std::vector<FunctionSpec> specs(const Row &row) {
    std::vector<FunctionSpec> list = functions(row.machine);
    for (FunctionSpec &spec : list)
        spec.payload_cap = 1;
    for (const std::string &word : words(row.settings)) {
        unsigned bus = 0, device = 0, function = 0, supported = 0, payload = 0, reads = 0;
        std::sscanf(word.c_str(), "%u.%u.%u=%u,%u,%u", &bus, &device, &function, &supported,
                    &payload, &reads);
        const auto spec = std::ranges::find(list, at(bus, device, function), &FunctionSpec::id);
        spec->payload_cap = supported;
        spec->dwords = {{DEVCTL_AT, payload << 5 | reads << 12}};
    }
    return list;
}

std::vector<std::string> findings_of(const Row &row, std::uint32_t aer = 0) {
    std::vector<FunctionSpec> list = specs(row);
    for (FunctionSpec &spec : list)
        spec.aer = spec.id == at(0, 1) ? aer >> 16 : aer & 0xFFFF;
    TestMachine test(list);
    const Serving serving(*test.machine);
    for (const Function *function : test.machine->functions())
        if (std::uint16_t devctl = 0; read_devctl(*function, devctl) == PCI_OK && devctl >> 5 & 7)
            note_given_payload(*function, devctl);
    Report report = begin_report(*test.machine, 0);
    end_report(report, *test.machine, {});
    std::vector<std::string> texts;
    for (const Finding &finding : report.findings) {
        texts.push_back(std::string(severity_text(finding.severity)) + " " + finding.code + ": " +
                        finding.text);
        EXPECT_TRUE(finding.several.empty() || finding.several[0] == finding.function);
    }
    return texts;
}

}  // namespace

TEST(Findings, TellWhichPayloadsAreLostAndWhatWouldBeGained) {
    const std::string above = ", the port above it, 00:01.0, to ";
    const Row rows[] = {
        {"0.1:4>1-1 1.0:0", "0.1.0=1,1,0 1.0.0=1,1,5", {}},
        {"0.1:4>1-1 1.0:0",
         "0.1.0=1,1,0 1.0.0=0,1,0",
         {"error payload-unsupported: 01:00.0 is set to 256 bytes, above the 128 that it supports",
          "note payload-limited: 00:01.0: its hierarchy is limited to 128 bytes by 01:00.0; 256 "
          "without it: +8.6 %"}},
        {"0.1:4>1-1 1.0:0",
         "1.0.0=1,1,0",
         {"error payload-above-port: 01:00.0 is set to 256 bytes" + above +
              "128: its larger packets are lost",
          "note payload-below-possible: 00:01.0: its hierarchy is set to 128 bytes and supports "
          "256: +8.6 %"}},
        {"0.1:4>1-1 1.0:0",
         "0.1.0=1,1,0 1.0.0=1,0,1",
         {"error payload-below-port: 01:00.0 is set to 128 bytes" + above +
          "256: larger packets to it are lost"}},
        {"0.1:4>1-1 1.0:0",
         "0.1.0=1,1,0",
         {"warning payload-below-port: 01:00.0 is set to 128 bytes" + above +
          "256: larger writes to it would be lost; its reads are not larger "
          "(Max_Read_Request_Size)"}},
        // Empty ports of a switch, one of them too small, and one with a function below that reads
        // much. What has a size was given it by a module.
        {"0.1:4>1-5 1.0:5>2-5 2.0:6>3-3 2.1:6>4-4 2.2:6>5-5 4.0:0",
         "0.1.0=1,1,0 1.0.0=1,1,0 2.2.0=0,0,0 4.0.0=1,0,5",
         {"error payload-below-port: 02:01.0 is set to 128 bytes, the port above it, 01:00.0, to "
          "256: larger packets to it are lost",
          "note payload-limited: 00:01.0: its hierarchy is limited to 128 bytes by 02:02.0; 256 "
          "without it: +8.6 %",
          "note payload-left-behind: 02:00.0 is set to 128 bytes, the port above it, 01:00.0, to "
          "256: what is plugged in below it may lose packets (--complete sets it)",
          "note payload-left-behind: 02:02.0 is set to 128 bytes, the port above it, 01:00.0, to "
          "256: what is plugged in below it may lose packets"}},
        {"0.1:4>1-4 1.0:5>2-4 2.0:6>3-3 2.1:6>4-4 3.0:0 4.0:0",
         "0.1.0=2,0,0 1.0.0=2,0,0 2.1.0=2,0,0",
         {"note payload-below-possible: 00:01.0: its hierarchy is set to 128 bytes and supports "
          "256: +8.6 %",
          "note payload-limited: 00:01.0: its hierarchy is limited to 256 bytes by 02:00.0, "
          "03:00.0 and 04:00.0; 512 without them: +4.5 %"}},
        {"0.1:4>1-1 1.0:0",
         "0.1.0=1,1,0 1.0.0=2,1,5",
         {"note payload-limited: 00:01.0: its hierarchy is limited to 256 bytes by 00:01.0; 512 "
          "without it: +4.5 %"}},
        {"0.0:4>3-3 0.1:4>1-1 0.2:4>2-2 1.0:0 2.0:0",
         "0.1.0=1,1,0 1.0.0=1,1,0 0.2.0=0,0,0 2.0.0=0,0,0",
         {"note hierarchies-differ: hierarchies are set to 128, 256 bytes: writes from below one "
          "root port to below another may not pass; where they must, set all to 128"}},
        {"0.1:1 0.2:0 0.3:9",
         "",
         {"note no-root-port: 00:01.0 and 00:02.0: without a root port above, so that no payload "
          "size can be set"}},
    };
    for (const Row &row : rows)
        EXPECT_EQ(findings_of(row), row.findings) << row.machine << "; " << row.settings;
}

TEST(Findings, TellWhereEcrcHasOneEndOnly) {
    const Row row{"0.1:4>1-1 0.2:4>2-2 1.0:0 1.1:0", "0.1.0=1,1,0 1.0.0=1,1,0 1.1.0=1,1,0", {}};
    const std::string none = " by none above or below";
    const struct {
        std::uint32_t root_port, others;
        std::vector<std::string> findings;
    } rows[] = {
        {0, 0, {}},
        {CHK_CAP | CHK_ON, GEN_CAP | GEN_ON, {}},
        {GEN_CAP | GEN_ON, CHK_CAP | CHK_ON, {}},
        {0,
         GEN_CAP | GEN_ON,
         {"note ecrc-unchecked: 01:00.0 and 01:01.0: ECRC is generated, and checked" + none}},
        {CHK_CAP | CHK_ON,
         0,
         {"note ecrc-ungenerated: 00:01.0: ECRC is checked, and generated" + none}},
    };
    for (const auto &[root_port, others, findings] : rows)
        EXPECT_EQ(findings_of(row, root_port << 16 | others), findings);
}

}  // namespace host::tests
