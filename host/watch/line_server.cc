#include "host/watch/line_server.h"

#include <sys/socket.h>

#include <algorithm>
#include <utility>

#include "host/base/log.h"

namespace host {
namespace {

constexpr std::size_t MOST_CLIENTS = 16;  // others wait until one ends

bool is_ready(const std::vector<pollfd> &descriptors, int descriptor) {
    return std::ranges::any_of(descriptors, [&](const pollfd &each) {
        return each.fd == descriptor && each.revents != 0;
    });
}

const char *name_of(const Descriptor &connection) {
    return connection ? "control" : "standard input";
}

// False when whoever is there does not take it.
bool answer(const Descriptor &connection, std::string text) {
    if (!connection)
        return true;
    text += '\n';
    return send(connection.number(), text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT) ==
           static_cast<ssize_t>(text.size());
}

}  // namespace

LineServer::LineServer(const ControlSocket *socket, Execute execute)
    : socket_(socket), execute_(std::move(execute)) {}

void LineServer::read_stream(int descriptor) {
    clients_[descriptor];
}

void LineServer::wait_for(std::vector<pollfd> &descriptors) const {
    const auto add = [&](int descriptor) {
        descriptors.push_back({.fd = descriptor, .events = POLLIN, .revents = 0});
    };
    if (socket_ != nullptr && clients_.size() < MOST_CLIENTS)
        add(socket_->descriptor());
    for (const auto &[descriptor, client] : clients_)
        add(descriptor);
}

void LineServer::serve(const std::vector<pollfd> &ready) {
    for (auto each = clients_.begin(); each != clients_.end();) {
        const auto current = each++;
        if (is_ready(ready, current->first) && !take_lines(current->first, current->second))
            clients_.erase(current);
    }
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

// False when there is nothing more to come.
bool LineServer::take_lines(int descriptor, Client &client) {
    client.lines.fill(descriptor);
    while (const auto line = client.lines.next())
        if (!take_line(client, *line))
            return false;
    if (client.lines.is_too_long()) {
        log_error(std::string(name_of(client.connection)) + ": a line is too long");
        answer(client.connection, "error: the line is too long");
    }
    return client.lines.goes_on();
}

// False when the answer is not taken.
bool LineServer::take_line(const Client &client, const std::string &line) {
    const Outcome outcome = execute_(line, name_of(client.connection));
    if (!client.connection)
        all_done_ &= !outcome.failed;
    return answer(client.connection, outcome.answer);
}

}  // namespace host
