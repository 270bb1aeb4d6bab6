#include <iostream>

#include "host/base/input.h"
#include "host/base/log.h"
#include "host/base/words.h"
#include "host/cli/program.h"
#include "host/cli/run.h"
#include "host/exports/serve.h"
#include "host/machine/open_machine.h"
#include "host/watch/signals.h"
#include "platform/pci_access.h"
#include "tools/ops/operations.h"
#include "tools/ops/options.h"

namespace ops {
namespace {

// Throws host::InputError.
void refuse_bound(const Request &request, const Options &options,
                  const host::MachineSource &source) {
    if (!request.disturbs_driver || options.force || !source.is_written())
        return;
    const auto id = static_cast<host::RoutingId>(request.bdf & BDF_ROUTING_ID);
    if (const std::string driver = source.live->sysfs().driver(id); !driver.empty())
        throw host::InputError(host::join(options.operation, " ") + ": driver " + driver +
                               " is bound, and would lose interrupts (--force: all the same)");
}

// The output is written even if the operation fails, so that it shows what the operation left
// behind. Signals are blocked while this machine is written to: an operation that ended half way
// would leave registers disturbed.
int run(const Options &options) {
    host::open_log(options.log);
    const host::MachineSource source = host::open_source(options.source, std::cin);
    const std::unique_ptr<host::Machine> machine = host::open_machine(source.space());
    std::optional<host::OutputFile> output;
    if (options.output)
        output.emplace(*options.output);
    const Request request = parse_request(options.operation, *machine, source.domain);
    refuse_bound(request, options, source);
    const host::Serving serving(*machine);
    if (source.is_written())
        host::block_signals();
    const pci_err_t error = request.run(*machine, request.bdf, std::cout);
    if (output)
        source.write_dump_to(*output);
    const bool all_accessed = host::report_failures(source);
    if (!std::cout.flush())
        throw host::InputError("standard output: cannot be written");
    if (error)
        host::log_error(host::join(options.operation, " ") + ": " + pci_strerror(error));
    return error || !all_accessed ? host::EXIT_NOT_ALL_DONE : host::EXIT_DONE;
}

}  // namespace
}  // namespace ops

int main(int argc, char **argv) {
    return host::run_program([&]() -> std::optional<int> {
        const auto options = ops::parse_options(argc, argv, std::cout);
        return options ? std::optional(ops::run(*options)) : std::nullopt;
    });
}
