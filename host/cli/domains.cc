#include "host/cli/domains.h"

#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <map>
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
#include "host/base/words.h"
#include "host/cli/domain_lines.h"
#include "host/cli/domain_server.h"
#include "host/cli/domain_watch.h"
#include "host/cli/run.h"
#include "host/report/merged_report.h"
#include "host/report/report_html.h"
#include "host/space/dump.h"
#include "host/watch/bus_events.h"
#include "host/watch/control_socket.h"
#include "host/watch/service.h"
#include "host/watch/signals.h"

namespace host {
namespace {

// From the mildest to the gravest.
constexpr std::array STATUSES{EXIT_DONE, EXIT_FINDING, EXIT_WOULD_CHANGE, EXIT_NOT_ALL_DONE,
                              EXIT_BAD_INPUT};

// Each takes a process and some descriptors; a dump may name as many as it likes.
constexpr std::size_t MOST_DOMAINS = 256;

int gravest(int left, int right) {
    return std::ranges::find(STATUSES, left) < std::ranges::find(STATUSES, right) ? right : left;
}

// A domain, its server and what that leaves behind.
struct Domain {
    unsigned number;
    Descriptor report = memory_file();
    Descriptor dump = memory_file();
    Descriptor lines = memory_file();  // named_lines_text()
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
int serve(Run &run, std::size_t index, const DomainServer::Ready &ready, int parent) {
    const Domain &domain = run.domains[index];
    log_for("domain " + domain_text(domain.number));
    Options options = run.options;
    options.is_part = true;
    options.parent = parent;
    unsetenv("NOTIFY_SOCKET");  // the process above tells the service manager
    if (options.output)
        options.output = "/dev/fd/" + std::to_string(domain.dump.number());
    Session session(options, run.config.modules_of(domain.number), std::move(run.sources[index]),
                    run.events[index]);
    if (!ready())
        return EXIT_DONE;
    session.start();
    const bool told = write_whole(domain.lines.number(), named_lines_text(session.requests()));
    session.stay();
    std::ostringstream report;
    const int status = session.finish(report);
    if (told && write_whole(domain.report.number(), report.view()))
        return status;
    throw std::system_error(errno, std::generic_category(), "the report");
}

// Starts a server for each domain. Returns false when one of them cannot use its input.
bool prepare(Run &run) {
    for (std::size_t i = 0; i < run.domains.size(); ++i) {
        auto &server = run.domains[i].server;
        server.emplace([&](const auto &ready, int parent) { return serve(run, i, ready, parent); });
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

int wait_for(Domain &domain) {
    return exit_status(domain, domain.server->wait());
}

// Lets the servers do their work one after the other, and waits for the end of each.
int run_in_turn(std::vector<Domain> &domains) {
    int status = EXIT_DONE;
    for (Domain &domain : domains) {
        domain.server->start();
        status = gravest(status, wait_for(domain));
    }
    return status;
}

int end_all(std::vector<Domain> &domains) {
    int status = EXIT_DONE;
    for (Domain &domain : domains)
        if (domain.server)
            status = gravest(status, wait_for(domain));
    return status;
}

bool report_lines(const Run &run) {
    std::map<unsigned, std::string> texts;
    for (const Domain &domain : run.domains)
        texts[domain.number] = read_from_start(domain.lines.number());
    return report_named_lines(texts, run.options.strict);
}

// Lets the servers start one after the other, and stays above them.
int run_and_stay(Run &run, const ControlSocket *socket) {
    std::vector<WatchedDomain> watched;
    for (Domain &domain : run.domains) {
        domain.server->start();
        if (domain.server->ask(
                relayed({.text = "help", .source = "", .number = 1, .is_answered = true})))
            watched.push_back({domain.number, &*domain.server});
    }
    bool all_done = report_lines(run);
    if (!watched.empty())
        all_done &= watch_domains(watched, socket, run.options.events == STANDARD_INPUT);
    return gravest(end_all(run.domains), all_done ? EXIT_DONE : EXIT_NOT_ALL_DONE);
}

int run_all(Run &run) {
    std::optional<ControlSocket> socket;
    if (run.options.control)
        socket.emplace(*run.options.control);
    if (!prepare(run))
        return end_all(run.domains);
    run.sources.clear();
    if (run.options.watch)
        return run_and_stay(run, socket ? &*socket : nullptr);
    const int status = run_in_turn(run.domains);
    return report_lines(run) ? status : gravest(status, EXIT_NOT_ALL_DONE);
}

bool has_finished(const Domain &domain) {
    return domain.server && domain.server->has_finished();
}

// Returns false when the dump cannot be written; the report is written all the same.
bool write_dump(OutputFile &output, const std::vector<Domain> &domains) {
    try {
        output.write([&](const Sink &sink) {
            for (const Domain &domain : domains)
                sink(read_from_start(domain.dump.number()));
        });
        return true;
    } catch (const DumpError &error) {
        log_error(error.what());
        return false;
    }
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
        write_merged_json(out, reports, log_record());
    if (form == ReportForm::HTML)
        write_html_page(out, merged_json_line(reports, log_record()));
    if (form == ReportForm::DOT)
        write_merged_dot(out, reports);
    if (form == ReportForm::METRICS)
        write_merged_metrics(out, reports, log_record());
    if (!out.flush())
        throw InputError("standard output: the report cannot be written");
}

}  // namespace

int run_domains(const Options &options, const HostConfig &config,
                std::vector<MachineSource> sources, const EventText &events, std::ostream &out) {
    if (sources.size() > MOST_DOMAINS)
        throw InputError(std::to_string(sources.size()) + " domains, and at most " +
                         std::to_string(MOST_DOMAINS) +
                         " are served at once: choose some with --domain");
    std::optional<OutputFile> output;
    if (options.output)
        output.emplace(*options.output);
    std::vector<unsigned> numbers;
    for (const MachineSource &source : sources)
        numbers.push_back(source.domain);
    Run whole_run{options, config, std::move(sources), {}, {}};
    for (std::string &text : split_bus_events(events.text, events.name, numbers))
        whole_run.events.push_back({events.name, std::move(text)});
    for (const unsigned number : numbers)
        whole_run.domains.push_back({.number = number});
    if (whole_run.sources.front().is_written())
        block_signals();
    // A process that inherits an ignored SIGCHLD is not told how its children end.
    std::signal(SIGCHLD, SIG_DFL);
    int status = run_all(whole_run);
    if (output && std::ranges::all_of(whole_run.domains, has_finished) &&
        !write_dump(*output, whole_run.domains))
        status = EXIT_BAD_INPUT;
    write_report(options.report, out, whole_run.domains);
    return status;
}

}  // namespace host
