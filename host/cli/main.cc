#include <iostream>

#include "host/cli/options.h"
#include "host/cli/program.h"
#include "host/cli/run.h"

int main(int argc, char **argv) {
    return host::run_program([&]() -> std::optional<int> {
        const auto options = host::parse_options(argc, argv, std::cout);
        return options ? std::optional(host::run(*options, std::cin, std::cout)) : std::nullopt;
    });
}
