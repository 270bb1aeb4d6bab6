#include "host/live/service.h"

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

#include "host/live/signals.h"
#include "host/server/log.h"

namespace host {
namespace {

constexpr std::size_t LONGEST_LINE = 4096;

std::string error_text() {
    return std::generic_category().message(errno);
}

// Text that arrives in pieces, cut into lines.
class LineBuffer {
public:
    // Takes what can be read; false at the end, or when a line has no end.
    bool fill(int descriptor) {
        std::array<char, LONGEST_LINE> piece{};
        const ssize_t count = read(descriptor, piece.data(), piece.size());
        if (count < 0)
            return errno == EINTR || errno == EAGAIN;
        text_.append(piece.data(), static_cast<std::size_t>(count));
        return count > 0 && (text_.size() < LONGEST_LINE || text_.find('\n') != std::string::npos);
    }

    std::optional<std::string> next() {
        const std::size_t end = text_.find('\n');
        if (end == std::string::npos)
            return std::nullopt;
        std::string line = text_.substr(0, end);
        text_.erase(0, end + 1);
        return line;
    }

    // A last line without an end.
    std::string rest() const { return text_; }

private:
    std::string text_;
};

void answer(int connection, std::string text) {
    text += '\n';
    send(connection, text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
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

    void run() {
        while (!told_to_end_) {
            std::vector<pollfd> waiting = descriptors();
            poll(waiting.data(), waiting.size(), timeout());
            for (const pollfd &each : waiting)
                if (each.revents != 0 && !told_to_end_)
                    handle(each.fd);
            hot_plug_.settle(HotPlug::Clock::now());
        }
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
        const bool goes_on = buffer.fill(descriptor);
        while (const auto line = is_told_to_end() ? std::nullopt : buffer.next())
            take_line(descriptor, *line);
        if (goes_on)
            return;
        if (!buffer.rest().empty())
            take_line(descriptor, buffer.rest());
        inputs_.erase(descriptor);
        if (descriptor != STDIN_FILENO)
            close(descriptor);
    }

    // What happened before the line is known before it is executed.
    void take_line(int descriptor, const std::string &line) {
        take_events();
        const std::string text = execute_(line);
        if (descriptor != STDIN_FILENO)
            answer(descriptor, text);
    }

    Service &service_;
    HotPlug hot_plug_;
    const std::function<std::string(const std::string &)> execute_;
    std::map<int, LineBuffer> inputs_;
    bool told_to_end_ = false;
};

Service::Service(unsigned domain) : events_(domain) {
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
    if (std::filesystem::is_socket(path, none))
        unlink(name.c_str());  // left over from a server that was killed
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

void Service::serve_until_told(Machine &machine, LiveSpace &space, const Actions &actions) {
    Loop loop(*this, machine, space, actions);
    sd_notify(0, "READY=1");
    loop.run();
    sd_notify(0, "STOPPING=1");
}

}  // namespace host
