// The loop of a server that stays: kernel events, lines of input, signals.
#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "host/watch/hot_plug.h"

namespace host {

// From its making on, kernel events and the signals of hold_signals() wait for serve_until_told().
// Throws LiveError.
class Service {
public:
    explicit Service(unsigned domain);
    ~Service();
    Service(const Service &) = delete;
    Service &operator=(const Service &) = delete;

    // Lines also come from connections to a Unix socket at `path`, which only its owner may open;
    // each is answered by a line. Throws LiveError.
    void listen(const std::filesystem::path &path);

    // Lines also come from standard input.
    void read_standard_input();

    // What has come of a line: what to answer, a line too, and whether its event failed.
    struct Outcome {
        std::string answer;
        bool failed;
    };

    struct Actions {
        // Does what a line says; messages name its origin.
        std::function<Outcome(const std::string &line, const std::string &origin)> execute;
        std::function<void()> inserted;  // as HotPlug calls it
        std::string status;              // what the service manager is to show, a line
    };

    // Until SIGTERM or SIGINT. Tells the service manager when it begins and when it ends. False
    // when an event of standard input, which has no answers, failed.
    bool serve_until_told(Machine &machine, LiveSpace &space, const Actions &actions);

private:
    class Loop;

    KernelEvents events_;
    int signals_ = -1;
    int socket_ = -1;
    std::filesystem::path socket_path_;
    bool standard_input_ = false;
};

}  // namespace host
