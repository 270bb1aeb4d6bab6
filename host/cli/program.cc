#include "host/cli/program.h"

#include <fcntl.h>

#include <csignal>
#include <exception>
#include <iostream>

#include "host/base/input.h"
#include "host/base/log.h"
#include "host/cli/run.h"

namespace host {
namespace {

// If descriptor 0, 1 or 2 is closed, the next open() would get its number and receive our output.
// Occupy it with /dev/null, opened in the wrong direction, so that I/O on it still fails.
void keep_standard_descriptors() {
    for (const int descriptor : {0, 1, 2})
        if (fcntl(descriptor, F_GETFD) < 0)
            static_cast<void>(open("/dev/null", descriptor == 0 ? O_WRONLY : O_RDONLY));
}

}  // namespace

int run_program(const std::function<std::optional<int>()> &work) {
    keep_standard_descriptors();
    std::ios::sync_with_stdio(false);  // otherwise a failing read of std::cin counts as its end
    std::signal(SIGXFSZ, SIG_IGN);     // a write beyond a size limit then fails instead of ending
                                       // the process
    open_log({.verbosity = 0});
    try {
        if (const auto status = work())
            return *status;
        if (std::cout.flush())
            return EXIT_DONE;
        throw InputError("standard output: the text cannot be written");
    } catch (const std::exception &error) {
        return refuse(error);
    }
}

}  // namespace host
