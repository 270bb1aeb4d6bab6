#include "host/base/child_process.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <exception>
#include <system_error>

#include "host/base/descriptor_io.h"
#include "host/base/log.h"

namespace host {
namespace {

// Ends with _exit(), because the buffers and exit handlers that the child inherited are the
// parent's to flush and run. An exception of another kind, or one of the handler, ends the child
// too: it must not go on in the code of the parent.
[[noreturn]] void be_child(const std::function<std::string()> &work, int result,
                           int messages) noexcept {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    dup2(messages, STDOUT_FILENO);
    dup2(messages, STDERR_FILENO);
    try {
        _exit(write_whole(result, work()) ? 0 : 1);
    } catch (const std::exception &error) {
        log_error(error.what());
    }
    _exit(1);
}

int wait_for(pid_t child) {
    int status = 0;
    while (waitpid(child, &status, 0) < 0)
        if (errno != EINTR)
            throw std::system_error(errno, std::generic_category(), "waitpid");
    return status;
}

std::string end_text(int status) {
    if (!WIFSIGNALED(status))
        return "ended with status " + std::to_string(WEXITSTATUS(status));
    const int signal = WTERMSIG(status);
    return "ended by signal " + std::to_string(signal) + " (" + strsignal(signal) + ")";
}

}  // namespace

std::string in_child_process(const std::function<std::string()> &work) {
    std::array<int, 2> ends{-1, -1};
    if (pipe2(ends.data(), O_CLOEXEC) != 0)
        throw std::system_error(errno, std::generic_category(), "pipe");
    const Descriptor from_child(ends[0]);
    Descriptor to_parent(ends[1]);
    const Descriptor messages = memory_file();
    // A process that inherits an ignored SIGCHLD is not told how its children end.
    std::signal(SIGCHLD, SIG_DFL);
    const pid_t child = fork();
    if (child == 0)
        be_child(work, to_parent.number(), messages.number());
    to_parent = Descriptor();
    if (child < 0)
        throw std::system_error(errno, std::generic_category(), "fork");
    std::string result = read_whole(from_child.number());
    if (const int status = wait_for(child); status != 0) {
        write_whole(STDERR_FILENO, read_from_start(messages.number()));
        throw ChildError(end_text(status));
    }
    return result;
}

}  // namespace host
