#include <exception>
#include <iostream>

#include "host/cli/options.h"
#include "host/cli/run.h"
#include "host/cli/text.h"

int main(int argc, char **argv) {
    try {
        const auto options = host::parse_options(argc, argv, std::cout);
        return options ? host::run(*options, std::cin, std::cout) : host::EXIT_DONE;
    } catch (const host::InputError &error) {
        std::cerr << "error: " << error.what() << '\n';
    } catch (const std::exception &error) {
        std::cerr << "error: " << error.what() << '\n';
    }
    return host::EXIT_BAD_INPUT;
}
