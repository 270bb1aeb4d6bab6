// Lines that are sent to a server, and the answers to them. Knows nothing of machines.
#pragma once

#include <poll.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "host/watch/control_socket.h"
#include "host/watch/line_buffer.h"

namespace host {

class LineServer {
public:
    // What has come of a line: what to answer, a line too, and whether its event failed.
    struct Outcome {
        std::string answer;
        bool failed;
    };
    // Does what a line says; messages name its origin.
    using Execute = std::function<Outcome(const std::string &line, const std::string &origin)>;

    // Lines come from connections to the socket; null: none. Each is answered.
    LineServer(const ControlSocket *socket, Execute execute);

    // Lines also come from a stream, which is not closed, and has no answers.
    void read_stream(int descriptor);

    // Adds what serve() has to wait for.
    void wait_for(std::vector<pollfd> &descriptors) const;

    // Takes what has come.
    void serve(const std::vector<pollfd> &ready);

    // False when a line failed whose origin has no answers.
    bool all_done() const { return all_done_; }

private:
    struct Client {
        Descriptor connection;  // none: a stream
        LineBuffer lines;
    };

    void accept_connection();
    bool take_lines(int descriptor, Client &client);
    bool take_line(const Client &client, const std::string &line);

    const ControlSocket *socket_;
    Execute execute_;
    std::map<int, Client> clients_;
    bool all_done_ = true;
};

}  // namespace host
