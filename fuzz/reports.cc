// Writes the reports on machines with any bytes in their configuration space, on which the module
// has been started.
#include <sstream>

#include "fuzz/machines.h"
#include "host/exports/serve.h"
#include "host/report/report.h"
#include "host/report/report_dot.h"
#include "host/report/report_json.h"
#include "host/report/report_table.h"
#include "tests/support/module_state.h"

using namespace host;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const fuzz::HostileMachine hostile = fuzz::hostile_machine({data, size});
    const MachineSource source = hostile.source();
    source.image->set_filter(hostile.faults);
    Machine machine(*source.image);
    const Serving serving(machine, hostile.managed);
    Report report = begin_report(machine, 0);
    fuzz::start_module_with(hostile.features.empty() ? "MPS=all:max\nECRC=all:+:+\n"
                                                     : hostile.features,
                            hostile.failing_calloc);
    end_report(report, machine, {});
    std::ostringstream out;
    write_table(out, report, {});
    write_json(out, report);
    write_dot(out, report);
    source.image->set_filter({});
    tests::reset_module();
    fuzz::end_execution({data, size}, *source.image);
    return 0;
}
