#include "host/watch/line_server.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include "host/base/input.h"
#include "host/base/log.h"
#include "host/base/safe_text.h"

namespace host {
namespace {

bool is_ready(const std::vector<pollfd> &descriptors, int descriptor) {
    return std::ranges::any_of(descriptors, [&](const pollfd &each) {
        return each.fd == descriptor && each.revents != 0;
    });
}

// Sees input that came while lines of other clients were executed, too.
bool has_input(int descriptor) {
    pollfd input{.fd = descriptor, .events = POLLIN, .revents = 0};
    return poll(&input, 1, 0) > 0;
}

}  // namespace

LineServer::LineServer(const ControlSocket *socket, Execute execute,
                       std::function<Clock::time_point()> now)
    : socket_(socket), execute_(std::move(execute)), now_(std::move(now)) {}

void LineServer::read_stream(int descriptor) {
    clients_[descriptor];
}

void LineServer::read_connection(Descriptor connection) {
    Client &client = clients_[connection.number()];
    client.connection = std::move(connection);
    client.idle_since = now_();
}

void LineServer::wait_for(std::vector<pollfd> &descriptors) const {
    const auto add = [&](int descriptor, short events) {
        descriptors.push_back({.fd = descriptor, .events = events, .revents = 0});
    };
    if (socket_ != nullptr && !accept_at_)
        add(socket_->descriptor(), POLLIN);
    for (const auto &[descriptor, client] : clients_)
        if (!client.has_line())
            add(descriptor, client.unsent.empty() ? POLLIN : POLLOUT);
}

std::optional<LineServer::Clock::time_point> LineServer::due() const {
    const auto has_line = [](const auto &each) { return each.second.has_line(); };
    return std::ranges::any_of(clients_, has_line) ? Clock::time_point{} : accept_at_;
}

void LineServer::serve(const std::vector<pollfd> &ready) {
    for (auto &[descriptor, client] : clients_) {
        if (is_ready(ready, descriptor))
            transfer(descriptor, client);
        if (client.has_line())
            take_line(client);
    }
    if (std::erase_if(clients_, [](const auto &each) { return each.second.is_done(); }) > 0)
        accept_at_.reset();
    if (socket_ == nullptr)
        return;
    if (accept_at_ ? now_() >= *accept_at_ : is_ready(ready, socket_->descriptor()))
        accept_waiting();
}

void LineServer::accept_waiting() {
    accept_at_.reset();
    if (!make_room())
        return;
    Descriptor connection = socket_->accept();
    if (!connection) {
        if (errno != EAGAIN && errno != EINTR && errno != ECONNABORTED)
            wait_for_resources(errno);
        return;
    }
    is_short_ = false;
    read_connection(std::move(connection));
}

// The socket stays readable, so without a pause the server would try again all the time.
void LineServer::wait_for_resources(int error) {
    accept_at_ = now_() + std::chrono::seconds(1);
    if (!std::exchange(is_short_, true))
        log_error("control: connections have to wait: " + std::generic_category().message(error));
}

// Returns false when the waiting connection has to wait on.
bool LineServer::make_room() {
    const auto is_connection = [](const auto &each) { return bool(each.second.connection); };
    if (std::ranges::count_if(clients_, is_connection) < MOST_CONNECTIONS)
        return true;
    Client *const idle = longest_idle();
    if (idle == nullptr)
        return false;
    const Clock::time_point limit = idle->idle_since + IDLE_LIMIT;
    if (now_() < limit) {
        accept_at_ = limit;
        return false;
    }
    log_info("control: an idle connection gives way to another");
    idle->send_line("error: closed, because this connection was idle and another one waits");
    clients_.erase(idle->connection.number());
    return true;
}

// Returns null when no client is idle. A client that does not read its answer counts as idle.
LineServer::Client *LineServer::longest_idle() {
    Client *longest = nullptr;
    for (auto &[descriptor, client] : clients_) {
        const bool waits = client.unsent.empty() && (client.has_line() || has_input(descriptor));
        if (client.connection && !waits &&
            (longest == nullptr || client.idle_since < longest->idle_since))
            longest = &client;
    }
    return longest;
}

void LineServer::transfer(int descriptor, Client &client) {
    if (client.unsent.empty()) {
        client.lines.fill(descriptor);
        return;
    }
    client.send_rest();
    client.idle_since = now_();
}

void LineServer::take_line(Client &client) {
    const Line line{.text = client.lines.take_line(),
                    .source = client.connection ? "control" : "standard input",
                    .number = ++client.taken,
                    .is_answered = bool(client.connection)};
    const Outcome outcome = line.text.size() > LineBuffer::LONGEST_LINE
                                ? refusal(line, "the line is too long")
                                : execute_(line);
    if (!client.connection) {
        all_done_ &= !outcome.failed;
        return;
    }
    client.send_line(outcome.answer);
    client.idle_since = now_();
}

LineServer::Outcome LineServer::refusal(const Line &line, const std::string &reason) {
    const std::string complaint = line_complaint(line.source, line.number, reason, line.text);
    log_error(complaint);
    return {.answer = "error: " + complaint, .failed = false};
}

void LineServer::Client::send_line(const std::string &text) {
    unsent += safe_text(text) + '\n';
    send_rest();
}

void LineServer::Client::send_rest() {
    const ssize_t sent = send(connection.number(), unsent.data(), unsent.size(), MSG_NOSIGNAL);
    if (sent >= 0)
        unsent.erase(0, static_cast<std::size_t>(sent));
    else
        has_left = errno != EAGAIN && errno != EINTR;
}

}  // namespace host
