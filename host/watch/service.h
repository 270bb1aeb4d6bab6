// The loop of a server that stays: kernel events, lines of input, signals.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "host/watch/hot_plug.h"
#include "host/watch/line_server.h"

namespace host {

// From its making on, kernel events and the signals of block_signals() wait for serve_until_told().
// Throws LiveError.
class Service {
public:
    explicit Service(unsigned domain);
    Service(const Service &) = delete;
    Service &operator=(const Service &) = delete;

    // Lines also come from connections to a ControlSocket. Throws InputError.
    void listen(const std::filesystem::path &path);

    // Lines also come from standard input.
    void read_standard_input();

    struct Actions {
        LineServer::Execute execute;
        HotPlug::Observer hot_plug;
        // What the service manager is to show, a line.
        std::function<std::string()> status;
    };

    // Until SIGTERM or SIGINT. Tells the service manager when it begins and when it ends. False
    // when an event of standard input, which has no answers, failed.
    bool serve_until_told(Machine &machine, LiveFunctions &functions, const Actions &actions);

private:
    class Loop;

    KernelEvents events_;
    Descriptor signals_;
    std::unique_ptr<ControlSocket> socket_;
    bool standard_input_ = false;
};

}  // namespace host
