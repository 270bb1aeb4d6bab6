#include "host/cli/domain_server.h"

#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <exception>
#include <system_error>

#include "host/cli/run.h"

namespace host {
namespace {

// A byte tells the other process that the next step may begin, or that the work is done.
void tell(int descriptor) {
    send(descriptor, "", 1, MSG_NOSIGNAL);
}

bool is_told(int descriptor) {
    char byte = 0;
    ssize_t length = 0;
    do
        length = recv(descriptor, &byte, 1, 0);
    while (length < 0 && errno == EINTR);
    return length == 1;
}

// Ends with _exit(), because the buffers that the child inherited are the parent's to flush.
[[noreturn]] void be_child(const DomainServer::Work &work, int parent) noexcept {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    int status = EXIT_BAD_INPUT;
    try {
        bool started = false;
        const auto ready = [&] {
            tell(parent);
            return started = is_told(parent);
        };
        status = work(ready, parent);
        if (started)
            tell(parent);
    } catch (const std::exception &error) {
        status = refuse(error);
    }
    _exit(status);
}

}  // namespace

DomainServer::DomainServer(const Work &work) {
    std::array<int, 2> ends{-1, -1};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0)
        throw std::system_error(errno, std::generic_category(), "socketpair");
    to_child_ = Descriptor(ends[0]);
    const Descriptor to_parent(ends[1]);
    child_ = fork();
    if (child_ == 0)
        be_child(work, to_parent.number());
    if (child_ < 0)
        throw std::system_error(errno, std::generic_category(), "fork");
}

bool DomainServer::is_ready() const {
    return is_told(to_child_.number());
}

void DomainServer::start() const {
    tell(to_child_.number());
}

std::optional<std::string> DomainServer::ask(const std::string &line) {
    const std::string text = line + '\n';
    if (send(to_child_.number(), text.data(), text.size(), MSG_NOSIGNAL) < 0)
        return std::nullopt;
    std::string answer;
    std::array<char, 65536> piece{};
    while (!answer.ends_with('\n')) {
        const ssize_t length = recv(to_child_.number(), piece.data(), piece.size(), 0);
        if (length > 0)
            answer.append(piece.data(), static_cast<std::size_t>(length));
        else if (length == 0 || errno != EINTR)
            break;
    }
    if (!answer.ends_with('\n')) {
        has_finished_ = answer.ends_with('\0');  // the child's last word
        return std::nullopt;
    }
    answer.pop_back();
    return answer;
}

void DomainServer::end() const {
    kill(child_, SIGTERM);
}

int DomainServer::wait() {
    shutdown(to_child_.number(), SHUT_WR);
    has_finished_ |= is_told(to_child_.number());
    int status = 0;
    while (waitpid(child_, &status, 0) < 0)
        if (errno != EINTR)
            throw std::system_error(errno, std::generic_category(), "waitpid");
    return status;
}

}  // namespace host
