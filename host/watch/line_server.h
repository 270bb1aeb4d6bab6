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

// Clients are served a line each in turn. While one does not read its answer, nothing more is read
// of it: what it makes the server hold is an answer and two lines.
class LineServer {
public:
    // What has come of a line: what to answer, a line too once it is made safe, and whether its
    // event failed.
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

    // Whether serve() has something to do before anything more comes.
    bool is_busy() const;

    // Takes what has come: a line of each client at most.
    void serve(const std::vector<pollfd> &ready);

    // False when a line failed whose origin has no answers.
    bool all_done() const { return all_done_; }

private:
    struct Client {
        bool has_line() const { return unsent.empty() && lines.has_line(); }
        bool is_done() const {
            return has_left || (unsent.empty() && lines.is_at_end() && !lines.has_line());
        }
        void send_rest();

        Descriptor connection;  // none: a stream
        LineBuffer lines;
        std::string unsent;     // of the answer
        bool has_left = false;  // and does not hear answers
    };

    void accept_connection();
    static void transfer(int descriptor, Client &client);
    void take_line(Client &client);
    static Outcome refusal(const std::string &origin, const std::string &reason);

    const ControlSocket *socket_;
    Execute execute_;
    std::map<int, Client> clients_;
    bool all_done_ = true;
};

}  // namespace host
