// The frame of every program's main().
#pragma once

#include <functional>
#include <optional>

namespace host {

// Prepares the process, calls `work` and returns the program's exit status. `work` returns nullopt
// when it has only written --help or --version to std::cout; an exception of it is logged. Errors
// and warnings are logged until `work` opens the log in its own way.
int run_program(const std::function<std::optional<int>()> &work);

}  // namespace host
