#include <exception>
#include <iostream>

#include "host/cli/open_machine.h"
#include "host/cli/run.h"
#include "host/cli/text.h"
#include "host/server/log.h"
#include "platform/pci_access.h"
#include "tools/ops/operations.h"
#include "tools/ops/options.h"

namespace ops {
namespace {

// The image is written whatever came of the operation: a failed one shows what it left behind.
int run(const Options &options) {
    host::open_log(options.verbosity, options.debug);
    const host::Dump dump = host::open_dump(options.dump, options.domain);
    const std::unique_ptr<host::Machine> machine = host::open_machine(*dump.image);
    const Request request = parse_request(options.operation, *machine, options.domain);
    const host::Serving serving(*machine);
    const pci_err_t error = request.run(*machine, request.bdf, std::cout);
    if (options.output)
        host::write_dump(*options.output, *dump.image);
    if (!std::cout.flush())
        throw host::InputError("standard output: cannot be written");
    if (error)
        host::log_error(host::join(options.operation, " ") + ": " + pci_strerror(error));
    return error ? host::EXIT_NOT_ALL_DONE : host::EXIT_DONE;
}

}  // namespace
}  // namespace ops

int main(int argc, char **argv) {
    try {
        const auto options = ops::parse_options(argc, argv, std::cout);
        return options ? ops::run(*options) : host::EXIT_DONE;
    } catch (const std::exception &error) {
        std::cerr << "error: " << error.what() << '\n';
    }
    return host::EXIT_BAD_INPUT;
}
