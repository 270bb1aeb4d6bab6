#include <fcntl.h>

#include <csignal>
#include <exception>
#include <iostream>

#include "host/base/input.h"
#include "host/base/log.h"
#include "host/cli/options.h"
#include "host/cli/run.h"

namespace {

// If descriptor 0, 1 or 2 is closed, the next open() would get its number and receive our output.
// Occupy it with /dev/null, opened in the wrong direction, so that I/O on it still fails.
void keep_standard_descriptors() {
    for (const int descriptor : {0, 1, 2})
        if (fcntl(descriptor, F_GETFD) < 0)
            static_cast<void>(open("/dev/null", descriptor == 0 ? O_WRONLY : O_RDONLY));
}

}  // namespace

int main(int argc, char **argv) {
    keep_standard_descriptors();
    std::ios::sync_with_stdio(false);  // otherwise a failing read of std::cin counts as its end
    std::signal(SIGXFSZ, SIG_IGN);     // a write beyond a size limit then fails instead of ending
                                       // the process
    host::open_log({.verbosity = 0});
    try {
        const auto options = host::parse_options(argc, argv, std::cout);
        if (options)
            return host::run(*options, std::cin, std::cout);
        if (std::cout.flush())
            return host::EXIT_DONE;
        throw host::InputError("standard output: the text cannot be written");
    } catch (const std::exception &error) {
        return host::refuse(error);
    }
}
