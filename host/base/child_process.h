// Runs work in a child process, so that whatever it leaves behind ends with the child.
#pragma once

#include <functional>
#include <stdexcept>
#include <string>

namespace host {

// The work did not return; what() is "ended with status 2" or "ended by signal 11 (Segmentation
// fault)".
class ChildError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Runs `work` in a child process and returns its result. What the child writes to standard output
// and standard error, its log among it, is discarded when the work returns; otherwise it is written
// to standard error before ChildError is thrown. No other thread may run, because fork() copies the
// calling thread alone. SIGCHLD gets its default action.
std::string in_child_process(const std::function<std::string()> &work);

}  // namespace host
