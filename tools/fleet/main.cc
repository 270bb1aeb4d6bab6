#include <iostream>

#include "host/cli/program.h"
#include "tools/fleet/fleet.h"

int main(int argc, char **argv) {
    return host::run_program([&]() -> std::optional<int> {
        const auto options = fleet::parse_options(argc, argv, std::cout);
        return options ? std::optional(fleet::run(*options, std::cout)) : std::nullopt;
    });
}
