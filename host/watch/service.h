// Runs the loop of a server that stays: kernel events, lines of input, signals.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "host/watch/hot_plug.h"
#include "host/watch/line_server.h"

namespace host {

// From its construction on, kernel events and the signals of block_signals() are queued for
// serve_until_told(). Throws LiveError.
class Service {
public:
    explicit Service(unsigned domain);
    Service(const Service &) = delete;
    Service &operator=(const Service &) = delete;

    // Accepts lines from connections to a ControlSocket too. Throws InputError.
    void listen(const std::filesystem::path &path);

    // Reads lines from standard input too.
    void read_standard_input();

    // Reads lines from the process above too, in the form of relayed().
    void read_relayed(Descriptor connection);

    struct Actions {
        LineServer::Execute execute;
        HotPlug::Observer hot_plug;
        // Returns the status line for the service manager.
        std::function<std::string()> status;
    };

    // Serves until SIGTERM or SIGINT. Tells the service manager when it begins and when it ends.
    // Returns false when an event of standard input, which has no answers, failed.
    bool serve_until_told(Machine &machine, LiveFunctions &functions, const Actions &actions);

private:
    class Loop;

    KernelEvents events_;
    Descriptor signals_;
    std::unique_ptr<ControlSocket> socket_;
    bool standard_input_ = false;
    Descriptor relay_;
};

// Returns a line in the form in which a process hands it to the one that can execute it.
std::string relayed(const LineServer::Line &line);

// Returns the outcome that the answer to such a line tells.
LineServer::Outcome outcome_of(const std::string &answer);

}  // namespace host
