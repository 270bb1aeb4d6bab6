// Lines that are sent to a server, and the answers to them. Knows nothing of machines.
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

// Clients are served a line each in turn. While one does not read its answer, nothing more is read
// of it: what it makes the server hold is an answer and two lines.
//
// A connection may be idle for as long as nobody needs its place. When all places are taken and
// another connection waits, the one that has been idle for longest is told so and gives way.
class LineServer {
public:
    using Clock = std::chrono::steady_clock;

    static constexpr int MOST_CONNECTIONS = 16;
    static constexpr std::chrono::seconds IDLE_LIMIT{5};  // before that, the other one waits

    // What has come of a line: what to answer, a line too once it is made safe, and whether its
    // event failed.
    struct Outcome {
        std::string answer;
        bool failed;
    };
    // A line, and where it comes from: lines are counted for each connection.
    struct Line {
        std::string text;
        std::string source;
        std::size_t number;
        bool is_answered;
    };
    // Does what a line says.
    using Execute = std::function<Outcome(const Line &line)>;

    // Lines come from connections to the socket; null: none. Each is answered. Tests have a clock
    // of their own.
    LineServer(const ControlSocket *socket, Execute execute,
               std::function<Clock::time_point()> now = Clock::now);

    // Lines also come from a stream, which is not closed, and has no answers.
    void read_stream(int descriptor);

    // Adds what serve() has to wait for.
    void wait_for(std::vector<pollfd> &descriptors) const;

    // When serve() has something to do though nothing has come; empty when it has not.
    std::optional<Clock::time_point> due() const;

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
        void send_line(const std::string &text);
        void send_rest();

        Descriptor connection;  // none: a stream
        LineBuffer lines;
        std::size_t taken = 0;  // lines so far
        std::string unsent;     // of the answer
        bool has_left = false;  // and does not hear answers
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
    std::optional<Clock::time_point> accept_at_;  // those who wait are left alone until then
    bool is_short_ = false;                       // of descriptors or memory, which has been said
    bool all_done_ = true;
};

}  // namespace host
