// Receives lines from connections and a stream, and sends the answers. It knows nothing of
// machines.
#pragma once

#include <poll.h>

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "host/watch/control_socket.h"
#include "host/watch/line_buffer.h"

namespace host {

// Clients are served a line each in turn. While a client does not read its answer, nothing more is
// read from it, so that it makes the server hold no more than an answer and two lines.
//
// A connection may be idle until its place is needed. When all places are taken and another
// connection waits, the one that has been idle for longest gets a message and is closed.
class LineServer {
public:
    using Clock = std::chrono::steady_clock;

    static constexpr int MOST_CONNECTIONS = 16;
    static constexpr std::chrono::seconds IDLE_LIMIT{5};  // until then the waiting connection waits

    // The result of a line: its answer, which safe_text() makes one line, and whether its event
    // failed.
    struct Outcome {
        std::string answer;
        bool failed;
    };
    // A line and its source; lines are counted for each connection.
    struct Line {
        std::string text;
        std::string source;
        std::size_t number;
        bool is_answered;
    };
    // Executes a line.
    using Execute = std::function<Outcome(const Line &line)>;

    // Serves connections to the socket, if it is not null; each line is answered. The tests give a
    // clock of their own.
    LineServer(const ControlSocket *socket, Execute execute,
               std::function<Clock::time_point()> now = Clock::now);

    // Reads lines from a stream too. The stream is not closed and gets no answers.
    void read_stream(int descriptor);

    // Serves a connection that is there already.
    void read_connection(Descriptor connection);

    // Adds the descriptors that serve() waits for.
    void wait_for(std::vector<pollfd> &descriptors) const;

    // Returns when serve() has work to do even without input; nullopt when it has none.
    std::optional<Clock::time_point> due() const;

    // Handles the input: a line of each client at most.
    void serve(const std::vector<pollfd> &ready);

    // Returns false when a line from a source without answers failed.
    bool all_done() const { return all_done_; }

private:
    struct Client {
        bool has_line() const { return unsent.empty() && lines.has_line(); }
        bool is_done() const {
            return has_left || (unsent.empty() && lines.is_at_end() && !lines.has_line());
        }
        void send_line(const std::string &text);
        void send_rest();

        Descriptor connection;  // empty: a stream
        LineBuffer lines;
        std::size_t taken = 0;  // number of lines so far
        std::string unsent;     // rest of the answer
        bool has_left = false;  // the client has closed and reads no answers
        Clock::time_point idle_since;
    };

    void accept_waiting();
    void wait_for_resources(int error);
    bool make_room();
    Client *longest_idle();
    void transfer(int descriptor, Client &client);
    void take_line(Client &client);
    static Outcome refusal(const Line &line, const std::string &reason);

    const ControlSocket *socket_;
    Execute execute_;
    std::function<Clock::time_point()> now_;
    std::map<int, Client> clients_;
    std::optional<Clock::time_point> accept_at_;  // no connection is accepted until then
    bool is_short_ = false;                       // of descriptors or memory; it has been logged
    bool all_done_ = true;
};

}  // namespace host
