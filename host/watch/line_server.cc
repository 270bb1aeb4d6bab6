#include "host/watch/line_server.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "host/base/log.h"
#include "host/base/safe_text.h"

namespace host {
namespace {

constexpr std::size_t MOST_CLIENTS = 16;  // others wait until one ends

bool is_ready(const std::vector<pollfd> &descriptors, int descriptor) {
    return std::ranges::any_of(descriptors, [&](const pollfd &each) {
        return each.fd == descriptor && each.revents != 0;
    });
}

}  // namespace

LineServer::LineServer(const ControlSocket *socket, Execute execute)
    : socket_(socket), execute_(std::move(execute)) {}

void LineServer::read_stream(int descriptor) {
    clients_[descriptor];
}

void LineServer::wait_for(std::vector<pollfd> &descriptors) const {
    const auto add = [&](int descriptor, short events) {
        descriptors.push_back({.fd = descriptor, .events = events, .revents = 0});
    };
    if (socket_ != nullptr && clients_.size() < MOST_CLIENTS)
        add(socket_->descriptor(), POLLIN);
    for (const auto &[descriptor, client] : clients_)
        if (!client.has_line())
            add(descriptor, client.unsent.empty() ? POLLIN : POLLOUT);
}

bool LineServer::is_busy() const {
    return std::ranges::any_of(clients_, [](const auto &each) { return each.second.has_line(); });
}

void LineServer::serve(const std::vector<pollfd> &ready) {
    for (auto &[descriptor, client] : clients_) {
        if (is_ready(ready, descriptor))
            transfer(descriptor, client);
        if (client.has_line())
            take_line(client);
    }
    std::erase_if(clients_, [](const auto &each) { return each.second.is_done(); });
    if (socket_ != nullptr && is_ready(ready, socket_->descriptor()))
        accept_connection();
}

void LineServer::accept_connection() {
    Descriptor connection = socket_->accept();
    if (!connection)
        return;
    Client &client = clients_[connection.number()];
    client.connection = std::move(connection);
}

void LineServer::transfer(int descriptor, Client &client) {
    if (client.unsent.empty())
        client.lines.fill(descriptor);
    else
        client.send_rest();
}

void LineServer::take_line(Client &client) {
    const std::string line = client.lines.take_line();
    const std::string origin = client.connection ? "control" : "standard input";
    const Outcome outcome = line.size() > LineBuffer::LONGEST_LINE
                                ? refusal(origin, "the line is too long")
                                : execute_(line, origin);
    if (!client.connection) {
        all_done_ &= !outcome.failed;
        return;
    }
    client.unsent = safe_text(outcome.answer) + '\n';
    client.send_rest();
}

LineServer::Outcome LineServer::refusal(const std::string &origin, const std::string &reason) {
    log_error(origin + ": " + reason);
    return {.answer = "error: " + reason, .failed = false};
}

void LineServer::Client::send_rest() {
    const ssize_t sent = send(connection.number(), unsent.data(), unsent.size(), MSG_NOSIGNAL);
    if (sent >= 0)
        unsent.erase(0, static_cast<std::size_t>(sent));
    else
        has_left = errno != EAGAIN && errno != EINTR;
}

}  // namespace host
