#include "host/cli/domains.h"

#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
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
#include "host/cli/domain_server.h"
#include "host/cli/run.h"
#include "host/report/merged_report.h"
#include "host/requests/judge.h"
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

// A domain, its server and what that leaves behind.
struct Domain {
    unsigned number;
    Descriptor report = memory_file();
    Descriptor dump = memory_file();
    Descriptor lines = memory_file();  // of feature files, see lines_text()
    std::optional<DomainServer> server = std::nullopt;
};

struct Run {
    const Options &options;
    const HostConfig &config;
    std::vector<MachineSource> sources;
    std::vector<Domain> domains;
    std::vector<EventText> events;  // by domain
};

// A line of a feature file that names functions.
struct NamedLine {
    std::string place;  // "features.cfg:3"
    std::string text;
    std::string fault;                // why it sets nothing where there is no such function
    std::vector<std::string> owners;  // domains that have such functions
};

// Returns three texts for each line that names functions, each with a zero byte behind it: the
// place, the line, and why it sets nothing, or nothing where such functions are there.
std::string lines_text(const std::vector<RequestReport> &requests) {
    std::string text;
    for (const RequestReport &request : requests)
        if (request.is_named)
            text += request.file + ":" + std::to_string(request.line) + '\0' +
                    excerpt(request.text) + '\0' + (request.is_absent ? fault_text(request) : "") +
                    '\0';
    return text;
}

// Collects the lines of all domains.
std::vector<NamedLine> named_lines(const std::vector<Domain> &domains) {
    std::vector<NamedLine> lines;
    for (const Domain &domain : domains) {
        const std::string text = read_from_start(domain.lines.number());
        const auto parts = split(text, '\0');
        for (std::size_t i = 0; i + 3 < parts.size(); i += 3) {
            auto line = std::ranges::find(lines, parts[i], &NamedLine::place);
            if (line == lines.end())
                line =
                    lines.insert(line, {std::string(parts[i]), std::string(parts[i + 1]), "", {}});
            if (parts[i + 2].empty())
                line->owners.push_back(domain_text(domain.number));
            else
                line->fault = parts[i + 2];
        }
    }
    return lines;
}

// Tells of lines that are taken for several domains, and with --strict of those that select nothing
// in any. Returns false when there is one of the latter.
bool report_lines(const Run &run) {
    bool all_select = true;
    for (const NamedLine &line : named_lines(run.domains)) {
        if (line.owners.size() > 1)
            log_warning(line.place + ": " + line.text + " is taken for domains " +
                        join(line.owners, ", ") +
                        ", all of which have the function: a section [domain N] in the host "
                        "configuration tells them apart");
        if (!line.owners.empty() || !run.options.strict)
            continue;
        log_error(line.fault);
        all_select = false;
    }
    return all_select;
}

// Runs the session of a domain in its own process.
int serve(Run &run, std::size_t index, const DomainServer::Ready &ready) {
    const Domain &domain = run.domains[index];
    log_for("domain " + domain_text(domain.number));
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
    if (write_whole(domain.report.number(), report.view()) &&
        write_whole(domain.lines.number(), lines_text(session.requests())))
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
        write_merged_json(out, reports, log_record());
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
    int status = run_all(run);
    if (!report_lines(run))
        status = gravest(status, EXIT_NOT_ALL_DONE);
    if (output && std::ranges::all_of(run.domains, has_finished))
        write_dump(*output, run.domains);
    write_report(options.report, out, run.domains);
    return status;
}

}  // namespace host
