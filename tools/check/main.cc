#include <iostream>

#include "host/cli/program.h"
#include "tools/check/check.h"

int main(int argc, char **argv) {
    return host::run_program([&]() -> std::optional<int> {
        const auto options = check::parse_options(argc, argv, std::cout);
        return options ? std::optional(check::run(*options, std::cin, std::cout)) : std::nullopt;
    });
}
