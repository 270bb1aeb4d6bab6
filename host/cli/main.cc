#include <fcntl.h>

#include <csignal>
#include <exception>
#include <iostream>

#include "host/base/input.h"
#include "host/base/log.h"
#include "host/cli/options.h"
#include "host/cli/run.h"

namespace {

// A file that is opened while one of the standard descriptors is closed would get its number, and
// what is meant for that one. This way they fail as if they were closed.
void keep_standard_descriptors() {
    for (const int descriptor : {0, 1, 2})
        if (fcntl(descriptor, F_GETFD) < 0)
            static_cast<void>(open("/dev/null", descriptor == 0 ? O_WRONLY : O_RDONLY));
}

}  // namespace

int main(int argc, char **argv) {
    keep_standard_descriptors();
    std::ios::sync_with_stdio(false);  // else a failing read of std::cin counts as its end
    std::signal(SIGXFSZ, SIG_IGN);     // what is too large for a limit fails to be written
    host::open_log(0, false);
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
