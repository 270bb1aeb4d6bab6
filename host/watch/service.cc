#include "host/watch/service.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <map>
#include <system_error>
#include <vector>

#include "host/base/log.h"
#include "host/watch/signals.h"

namespace host {
namespace {

constexpr std::size_t LONGEST_LINE = 4096;
constexpr std::size_t MOST_CONNECTIONS = 16;  // others wait until one ends

std::string error_text() {
    return std::generic_category().message(errno);
}

// Text that arrives in pieces, cut into lines.
class LineBuffer {
public:
    // Takes what can be read. At the end, what is left is a line too; after an error it is none.
    void fill(int descriptor) {
        std::array<char, LONGEST_LINE> piece{};
        const ssize_t count = read(descriptor, piece.data(), piece.size());
        if (count < 0) {
            is_broken_ = errno != EINTR && errno != EAGAIN;
            return;
        }
        text_.append(piece.data(), static_cast<std::size_t>(count));
        is_at_end_ = count == 0;
        if (is_at_end_ && !text_.empty())
            text_ += '\n';
    }

    std::optional<std::string> next() {
        const std::size_t end = text_.find('\n');
        if (end == std::string::npos)
            return std::nullopt;
        std::string line = text_.substr(0, end);
        text_.erase(0, end + 1);
        return line;
    }

    // After all lines have been taken.
    bool is_too_long() const { return text_.size() >= LONGEST_LINE; }
    bool goes_on() const { return !is_broken_ && !is_at_end_ && !is_too_long(); }

private:
    std::string text_;
    bool is_broken_ = false;
    bool is_at_end_ = false;
};

// False when whoever is there does not take it.
bool answer(int connection, std::string text) {
    text += '\n';
    return send(connection, text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT) ==
           static_cast<ssize_t>(text.size());
}

// Whether somebody listens there. What refuses is left over from a server that was killed.
bool is_listened_to(const sockaddr_un &address) {
    const int trying = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const bool listened =
        connect(trying, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 ||
        errno != ECONNREFUSED;
    close(trying);
    return listened;
}

}  // namespace

class Service::Loop {
public:
    Loop(Service &service, Machine &machine, LiveSpace &space, const Actions &actions)
        : service_(service), hot_plug_(machine, space, actions.inserted),
          execute_(actions.execute) {
        if (service.standard_input_)
            inputs_[STDIN_FILENO];
    }
    ~Loop() {
        for (const auto &[descriptor, buffer] : inputs_)
            if (descriptor != STDIN_FILENO)
                close(descriptor);
    }
    Loop(const Loop &) = delete;
    Loop &operator=(const Loop &) = delete;

    bool run() {
        while (!told_to_end_) {
            std::vector<pollfd> waiting = descriptors();
            poll(waiting.data(), waiting.size(), timeout());
            for (const pollfd &each : waiting)
                if (each.revents != 0 && !told_to_end_)
                    handle(each.fd);
            hot_plug_.settle(HotPlug::Clock::now());
        }
        return all_done_;
    }

private:
    std::vector<pollfd> descriptors() const {
        std::vector<pollfd> all;
        const auto add = [&](int descriptor) {
            if (descriptor >= 0)
                all.push_back({.fd = descriptor, .events = POLLIN, .revents = 0});
        };
        add(service_.events_.descriptor());
        add(service_.signals_);
        if (inputs_.size() < MOST_CONNECTIONS)
            add(service_.socket_);
        for (const auto &[descriptor, buffer] : inputs_)
            add(descriptor);
        return all;
    }

    // Milliseconds until something is due, rounded up; forever when nothing is.
    int timeout() const {
        const auto due = hot_plug_.due();
        if (!due)
            return -1;
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(*due - HotPlug::Clock::now());
        return static_cast<int>(std::max<std::int64_t>(left.count(), 0));
    }

    void handle(int descriptor) {
        if (descriptor == service_.events_.descriptor())
            take_events();
        else if (descriptor == service_.signals_)
            take_signal();
        else if (descriptor == service_.socket_)
            accept_connection();
        else
            take_lines(descriptor);
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
        if (read(service_.signals_, &signal, sizeof signal) != sizeof signal)
            return;
        if (signal.ssi_signo == SIGHUP)
            log_warning("SIGHUP is ignored: settings are read at start-up only");
        else
            told_to_end_ = true;
    }

    void accept_connection() {
        const int connection = accept4(service_.socket_, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection >= 0)
            inputs_[connection];
    }

    void take_lines(int descriptor) {
        LineBuffer &buffer = inputs_[descriptor];
        buffer.fill(descriptor);
        bool is_answered = true;
        while (const auto line = is_answered && !is_told_to_end() ? buffer.next() : std::nullopt)
            is_answered = take_line(descriptor, *line);
        if (is_answered && buffer.goes_on())
            return;
        if (buffer.is_too_long()) {
            log_error(name_of(descriptor) + ": a line is too long");
            reply(descriptor, "error: the line is too long");
        }
        inputs_.erase(descriptor);
        if (descriptor != STDIN_FILENO)
            close(descriptor);
    }

    // What happened before the line is known before it is executed. False when the answer is not
    // taken.
    bool take_line(int descriptor, const std::string &line) {
        take_events();
        const Outcome outcome = execute_(line, name_of(descriptor));
        if (descriptor == STDIN_FILENO)
            all_done_ &= !outcome.failed;
        return reply(descriptor, outcome.answer);
    }

    static std::string name_of(int descriptor) {
        return descriptor == STDIN_FILENO ? "standard input" : "control";
    }

    static bool reply(int descriptor, const std::string &text) {
        return descriptor == STDIN_FILENO || answer(descriptor, text);
    }

    Service &service_;
    HotPlug hot_plug_;
    const decltype(Actions::execute) execute_;
    std::map<int, LineBuffer> inputs_;
    bool told_to_end_ = false;
    bool all_done_ = true;
};

Service::Service(unsigned domain) : events_(domain) {
    hold_signals();
    const sigset_t set = held_signals();
    signals_ = signalfd(-1, &set, SFD_CLOEXEC);
    if (signals_ < 0)
        throw LiveError("--watch: signals cannot be received: " + error_text());
}

Service::~Service() {
    close(signals_);
    if (socket_ < 0)
        return;
    close(socket_);
    unlink(socket_path_.c_str());
}

void Service::listen(const std::filesystem::path &path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string name = path.string();
    const auto refuse = [&](const std::string &why) {
        throw LiveError("--control: " + name + ": " + why);
    };
    if (name.empty() || name.size() >= sizeof address.sun_path)
        refuse("a socket's name has 1 to " + std::to_string(sizeof address.sun_path - 1) +
               " characters");
    std::memcpy(address.sun_path, name.data(), name.size());
    std::error_code none;
    if (std::filesystem::is_socket(path, none)) {
        if (is_listened_to(address))
            refuse("another server listens there");
        unlink(name.c_str());
    } else if (std::filesystem::exists(std::filesystem::symlink_status(path, none))) {
        refuse("is there already, and is no socket");
    }
    const int listening = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const mode_t former = umask(0177);
    const bool bound = listening >= 0 &&
                       bind(listening, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0;
    umask(former);
    if (!bound || ::listen(listening, SOMAXCONN) != 0) {
        const std::string why = error_text();
        if (listening >= 0)
            close(listening);
        refuse(why);
    }
    socket_ = listening;
    socket_path_ = path;
}

void Service::read_standard_input() {
    standard_input_ = true;
}

bool Service::serve_until_told(Machine &machine, LiveSpace &space, const Actions &actions) {
    Loop loop(*this, machine, space, actions);
    sd_notify(0, ("READY=1\nSTATUS=" + actions.status).c_str());
    const bool all_done = loop.run();
    sd_notify(0, "STOPPING=1");
    return all_done;
}

}  // namespace host
