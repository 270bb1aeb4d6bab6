// The loop of a server that stays: kernel events, lines of input, signals.
#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "host/live/hot_plug.h"

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

    struct Actions {
        // Does what a line says and gives the answer to it, a line too.
        std::function<std::string(const std::string &line)> execute;
        std::function<void()> inserted;  // as HotPlug calls it
    };

    // Until SIGTERM or SIGINT. Tells the service manager when it begins and when it ends.
    void serve_until_told(Machine &machine, LiveSpace &space, const Actions &actions);

private:
    class Loop;

    KernelEvents events_;
    int signals_ = -1;
    int socket_ = -1;
    std::filesystem::path socket_path_;
    bool standard_input_ = false;
};

}  // namespace host
