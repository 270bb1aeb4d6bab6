// Work in a process of its own, which cannot leave anything behind in this one.
#pragma once

#include <functional>
#include <stdexcept>
#include <string>

namespace host {

// The work did not return: "ended with status 2", "ended by signal 11 (Segmentation fault)".
class ChildError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Does `work` in a child process and gives what it returned. What the child writes to standard
// output and standard error, its messages among it, is discarded when the work returns; else it is
// written to standard error before ChildError is thrown. No other thread may run.
std::string in_child_process(const std::function<std::string()> &work);

}  // namespace host
