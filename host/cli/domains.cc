#include "host/cli/domains.h"

#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <functional>
#include <optional>
#include <ostream>
#include <sstream>
#include <string>
#include <system_error>
#include <utility>

#include "host/base/address.h"
#include "host/base/descriptor_io.h"
#include "host/base/input.h"
#include "host/base/log.h"
#include "host/cli/run.h"
#include "host/report/merged_report.h"
#include "host/space/dump.h"
#include "host/watch/bus_events.h"
#include "host/watch/signals.h"

namespace host {
namespace {

// From the mildest to the gravest.
constexpr std::array STATUSES{EXIT_DONE, EXIT_FINDING, EXIT_WOULD_CHANGE, EXIT_NOT_ALL_DONE,
                              EXIT_BAD_INPUT};

int gravest(int left, int right) {
    return std::ranges::find(STATUSES, left) < std::ranges::find(STATUSES, right) ? right : left;
}

// The server process of one domain.
class DomainServer {
public:
    // `work` runs in the child and returns its exit status. It calls its argument when all input
    // has been read, and does nothing more when that gives false.
    using Ready = std::function<bool()>;
    using Work = std::function<int(const Ready &ready)>;

    explicit DomainServer(const Work &work) {
        std::array<int, 2> ends{-1, -1};
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0)
            throw std::system_error(errno, std::generic_category(), "socketpair");
        to_child_ = Descriptor(ends[0]);
        const Descriptor to_parent(ends[1]);
        child_ = fork();
        if (child_ == 0)
            be_child(work, to_parent.number());
        if (child_ < 0)
            throw std::system_error(errno, std::generic_category(), "fork");
    }

    // Returns false when the child has ended instead.
    bool is_ready() const { return receive(to_child_.number()); }

    void start() const { send(to_child_.number(), "", 1, MSG_NOSIGNAL); }

    // Waits until the child has ended, which one that has not been started does at once, and
    // returns how, as waitpid() tells it.
    int wait() {
        shutdown(to_child_.number(), SHUT_WR);
        has_finished_ = receive(to_child_.number());
        int status = 0;
        while (waitpid(child_, &status, 0) < 0)
            if (errno != EINTR)
                throw std::system_error(errno, std::generic_category(), "waitpid");
        return status;
    }

    // Returns true when the work was done, whatever its status.
    bool has_finished() const { return has_finished_; }

private:
    static bool receive(int descriptor) {
        char byte = 0;
        ssize_t length = 0;
        do
            length = recv(descriptor, &byte, 1, 0);
        while (length < 0 && errno == EINTR);
        return length == 1;
    }

    // Ends with _exit(), because the buffers that the child inherited are the parent's to flush.
    [[noreturn]] static void be_child(const Work &work, int parent) noexcept {
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        int status = EXIT_BAD_INPUT;
        try {
            bool started = false;
            status = work([&] {
                send(parent, "", 1, MSG_NOSIGNAL);
                return started = receive(parent);
            });
            if (started)
                send(parent, "", 1, MSG_NOSIGNAL);
        } catch (const std::exception &error) {
            status = refuse(error);
        }
        _exit(status);
    }

    Descriptor to_child_;
    pid_t child_ = -1;
    bool has_finished_ = false;
};

// A domain, its server and what that leaves behind.
struct Domain {
    unsigned number;
    Descriptor report = memory_file();
    Descriptor dump = memory_file();
    std::optional<DomainServer> server = std::nullopt;
};

struct Run {
    const Options &options;
    const HostConfig &config;
    std::vector<MachineSource> sources;
    std::vector<Domain> domains;
    std::vector<EventText> events;  // by domain
};

// Runs the session of a domain in its own process.
int serve(Run &run, std::size_t index, const DomainServer::Ready &ready) {
    const Domain &domain = run.domains[index];
    // The first domain's report tells what has been logged before there were several.
    log_for("domain " + domain_text(domain.number), index == 0);
    Options options = run.options;
    options.is_part = true;
    if (options.output)
        options.output = "/dev/fd/" + std::to_string(domain.dump.number());
    Session session(options, run.config.modules_of(domain.number), std::move(run.sources[index]),
                    run.events[index]);
    if (!ready())
        return EXIT_DONE;
    session.start();
    std::ostringstream report;
    const int status = session.finish(report);
    if (write_whole(domain.report.number(), report.view()))
        return status;
    throw std::system_error(errno, std::generic_category(), "the report");
}

// Starts a server for each domain. Returns false when one of them cannot use its input.
bool prepare(Run &run) {
    for (std::size_t i = 0; i < run.domains.size(); ++i) {
        auto &server = run.domains[i].server;
        server.emplace([&](const auto &ready) { return serve(run, i, ready); });
        if (!server->is_ready())
            return false;
    }
    return true;
}

// Returns the exit status of a child, and logs another end than that by itself.
int exit_status(const Domain &domain, int status) {
    if (WIFEXITED(status))
        return WEXITSTATUS(status);
    log_error("domain " + domain_text(domain.number) + ": the server was ended by signal " +
              std::to_string(WTERMSIG(status)) + " (" + strsignal(WTERMSIG(status)) + ")");
    return EXIT_BAD_INPUT;
}

// Lets the servers do their work one after the other, or none where one is not ready.
int run_all(Run &run) {
    const bool all_ready = prepare(run);
    int status = EXIT_DONE;
    for (Domain &domain : run.domains) {
        if (!domain.server)
            break;
        if (all_ready)
            domain.server->start();
        status = gravest(status, exit_status(domain, domain.server->wait()));
    }
    return status;
}

bool has_finished(const Domain &domain) {
    return domain.server && domain.server->has_finished();
}

void write_dump(OutputFile &output, const std::vector<Domain> &domains) {
    output.write([&](const Sink &sink) {
        for (const Domain &domain : domains)
            sink(read_from_start(domain.dump.number()));
    });
}

void write_report(ReportForm form, std::ostream &out, const std::vector<Domain> &domains) {
    std::vector<DomainReport> reports;
    for (const Domain &domain : domains)
        if (has_finished(domain))
            reports.push_back({domain.number, read_from_start(domain.report.number())});
    if (reports.empty())
        return;
    if (form == ReportForm::TABLE)
        write_merged_tables(out, reports);
    if (form == ReportForm::JSON)
        write_merged_json(out, reports);
    if (form == ReportForm::DOT)
        write_merged_dot(out, reports);
    if (!out.flush())
        throw InputError("standard output: the report cannot be written");
}

}  // namespace

int run_domains(const Options &options, const HostConfig &config,
                std::vector<MachineSource> sources, const EventText &events, std::ostream &out) {
    std::optional<OutputFile> output;
    if (options.output)
        output.emplace(*options.output);
    std::vector<unsigned> numbers;
    for (const MachineSource &source : sources)
        numbers.push_back(source.domain);
    Run run{options, config, std::move(sources), {}, {}};
    for (std::string &text : split_bus_events(events.text, events.name, numbers))
        run.events.push_back({events.name, std::move(text)});
    for (const unsigned number : numbers)
        run.domains.push_back({.number = number});
    if (run.sources.front().is_written())
        block_signals();
    // A process that inherits an ignored SIGCHLD is not told how its children end.
    std::signal(SIGCHLD, SIG_DFL);
    const int status = run_all(run);
    if (output && std::ranges::all_of(run.domains, has_finished))
        write_dump(*output, run.domains);
    write_report(options.report, out, run.domains);
    return status;
}

}  // namespace host
