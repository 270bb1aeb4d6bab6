#include "host/watch/service.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <sstream>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "host/base/log.h"
#include "host/space/live_error.h"
#include "host/watch/signals.h"

namespace host {

namespace {

// A relayed line is "NUMBER control TEXT" or "NUMBER input TEXT"; an answer begins with "+", or "-"
// when an event failed.
constexpr std::string_view FROM_CONTROL = "control";
constexpr std::string_view FROM_INPUT = "input";

LineServer::Line line_of(const std::string &text) {
    std::istringstream parts(text);
    LineServer::Line line{};
    std::string source;
    parts >> line.number >> source;
    parts.get();
    std::getline(parts, line.text);
    line.is_answered = source == FROM_CONTROL;
    line.source = line.is_answered ? "control" : "standard input";
    return line;
}

LineServer::Outcome answer_of(const LineServer::Outcome &outcome) {
    return {.answer = (outcome.failed ? "-" : "+") + outcome.answer, .failed = false};
}

}  // namespace

std::string relayed(const LineServer::Line &line) {
    std::string text = std::to_string(line.number) + ' ';
    text += line.is_answered ? FROM_CONTROL : FROM_INPUT;
    return text + ' ' + line.text;
}

LineServer::Outcome outcome_of(const std::string &answer) {
    const bool is_marked = answer.starts_with('+') || answer.starts_with('-');
    return {.answer = answer.substr(is_marked ? 1 : 0), .failed = answer.starts_with('-')};
}

class Service::Loop {
public:
    Loop(Service &service, Machine &machine, LiveFunctions &functions, const Actions &actions)
        : service_(service), machine_(machine), hot_plug_(machine, functions, actions.hot_plug),
          execute_(actions.execute), status_(actions.status),
          lines_(service.socket_.get(), executed()) {
        if (service.standard_input_)
            lines_.read_stream(STDIN_FILENO);
        if (service.relay_)
            lines_.read_connection(std::move(service.relay_));
    }

    bool run() {
        show_status("READY=1\n");
        while (!told_to_end_) {
            machine_.space().rest();
            std::vector<pollfd> waiting = descriptors();
            if (poll(waiting.data(), waiting.size(), timeout()) < 0 && errno != EINTR)
                std::this_thread::sleep_for(std::chrono::milliseconds(100));  // memory is short
            take_events();
            take_signal();
            lines_.serve(waiting);
            hot_plug_.settle(HotPlug::Clock::now());
            show_status();
        }
        return lines_.all_done();
    }

private:
    // Sends the status when it differs from the one last sent.
    void show_status(const std::string &state = std::string()) {
        const std::string status = status_();
        if (status == shown_status_)
            return;
        shown_status_ = status;
        sd_notify(0, (state + "STATUS=" + status).c_str());
    }

    std::vector<pollfd> descriptors() const {
        std::vector<pollfd> all = {
            {.fd = service_.events_.descriptor(), .events = POLLIN, .revents = 0},
            {.fd = service_.signals_.number(), .events = POLLIN, .revents = 0}};
        lines_.wait_for(all);
        return all;
    }

    // Returns the milliseconds until the next work is due, rounded up; -1, for ever, when none is.
    int timeout() const {
        const auto now = HotPlug::Clock::now();
        auto left = std::chrono::milliseconds::max();
        for (const auto due : {hot_plug_.due(), lines_.due()})
            if (due)
                left = std::min(left, std::chrono::ceil<std::chrono::milliseconds>(*due - now));
        if (left == std::chrono::milliseconds::max())
            return -1;
        return static_cast<int>(std::max<std::int64_t>(left.count(), 0));
    }

    void take_events() {
        while (const auto event = service_.events_.next())
            hot_plug_.take(*event);
        if (service_.events_.lost()) {
            log_warning("the kernel dropped events: everything is looked at again");
            hot_plug_.take_all();
        }
    }

    void take_signal() {
        signalfd_siginfo signal{};
        if (read(service_.signals_.number(), &signal, sizeof signal) != sizeof signal)
            return;
        if (signal.ssi_signo == SIGHUP)
            log_warning("SIGHUP is ignored: settings are read at start-up only");
        else
            told_to_end_ = true;
    }

    // Kernel events that came before a line are taken first, so that the line sees the machine as
    // it was then.
    LineServer::Execute executed() {
        if (service_.relay_)
            return [this](const LineServer::Line &line) {
                return answer_of(execute_line(line_of(line.text)));
            };
        return [this](const LineServer::Line &line) { return execute_line(line); };
    }

    LineServer::Outcome execute_line(const LineServer::Line &line) {
        if (told_to_end_ || termination_pending())
            return {.answer = "error: the server has been told to end", .failed = false};
        take_events();
        return execute_(line);
    }

    Service &service_;
    const Machine &machine_;
    HotPlug hot_plug_;
    const LineServer::Execute execute_;
    const decltype(Actions::status) status_;
    std::string shown_status_;
    LineServer lines_;
    bool told_to_end_ = false;
};

Service::Service(unsigned domain) : events_(domain) {
    block_signals();
    const sigset_t set = blocked_signals();
    signals_ = Descriptor(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!signals_)
        throw LiveError("--watch: signals cannot be received: " +
                        std::generic_category().message(errno));
}

void Service::listen(const std::filesystem::path &path) {
    socket_ = std::make_unique<ControlSocket>(path);
}

void Service::read_standard_input() {
    standard_input_ = true;
}

void Service::read_relayed(Descriptor connection) {
    relay_ = std::move(connection);
}

bool Service::serve_until_told(Machine &machine, LiveFunctions &functions, const Actions &actions) {
    Loop loop(*this, machine, functions, actions);
    const bool all_done = loop.run();
    sd_notify(0, "STOPPING=1");
    return all_done;
}

}  // namespace host
