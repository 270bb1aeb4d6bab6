// The table fits into terminals of any width.
#include "host/report/report_table.h"

#include <gtest/gtest.h>

#include <sstream>
#include <tuple>

#include "host/base/columns.h"
#include "host/base/words.h"
#include "host/exports/serve.h"
#include "host/report/function_name.h"
#include "tests/support/test_machine.h"

namespace host::tests {

TEST(Table, CutsOfANameWhatTellsLeast) {
    const std::string known = "PCI bridge [0604]: A Corp. Hub [Xe] Port 3 [8086:7ec4]";
    const std::tuple<std::string, std::size_t, const char *> rows[] = {
        {"Hub: A (Upstream) (rev 12) (prog-if 00 [Normal decode])", 99, "Hub: A (Upstream)"},
        {"PIC [0800]: IO(X) (rev 07) (prog-if 20 [IO(X)-APIC])", 99, "PIC: IO(X)"},
        {known + " (rev 12)", 47, "PCI bridge: A Corp. Hub [Xe] Port 3 [8086:7ec4]"},
        {known + " (rev 12) (prog-if", 46, "A Corp. Hub [Xe] Port 3 [8086:7ec4]"},
        {known, 22, "… Hub [Xe] Port 3"},
        {"Bridge: A Device [8086:7e", 16, "… [8086:7e"},
        {"Bridge: Äußerst-lang", 6, "…-lang"},
        {"", 0, ""},
    };
    for (const auto &[name, columns, shown] : rows) {
        FunctionReport row;
        row.name = name;
        EXPECT_EQ(fitted_name(row, columns), shown) << name;
    }
}

TEST(Table, NamesDevicesWithinTheWidthOfTheTerminal) {
    TestMachine test(functions("0.1:4>1-4 1.0:5>2-4 2.0:6>3-3 3.0:0 3.0.1:1 0.2:-"));
    const Serving serving(*test.machine);
    Report report = begin_report(*test.machine, 0);
    for (FunctionReport &row : report.functions)
        row.name = "Ethernet controller: Vendor Corporation of Somewhere, device " + row.address;
    end_report(report, *test.machine, {});
    for (std::size_t width = 40; width < 200; ++width) {
        std::ostringstream out;
        write_table(out, report, {.width = width});
        const std::string table = out.str();
        for (const std::string_view line : split(table, '\n'))
            EXPECT_LE(display_width(line), width) << line;
        for (const FunctionReport &row : report.functions)
            EXPECT_TRUE(width < 70 || table.find("device " + row.address + "\n") < table.size());
    }
}

}  // namespace host::tests
