// Reads any text as a dump. When it is one, starts the module on the machine and writes the
// reports.
#include <sstream>

#include "fuzz/support.h"
#include "host/exports/serve.h"
#include "host/report/report.h"
#include "host/report/report_json.h"
#include "host/report/report_table.h"
#include "host/space/dump.h"
#include "tests/support/module_state.h"

using namespace host;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    std::istringstream text(std::string(reinterpret_cast<const char *>(data), size));
    Dump dump;
    try {
        dump = read_dump(text, "dump", std::nullopt);
    } catch (const DumpError &) {
        return 0;
    }
    for (const auto &[number, domain] : dump.domains) {
        Machine machine(*domain.image);
        const Serving serving(machine);
        Report report = begin_report(machine, number);
        fuzz::start_module_with("MPS=all:max\nECRC=all:+:+\n");
        end_report(report, machine, {});
        std::ostringstream out;
        write_table(out, report, {});
        write_json(out, report);
        tests::reset_module();
        fuzz::end_execution({data, size}, *domain.image);
    }
    return 0;
}
