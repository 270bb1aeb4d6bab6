#include "host/cli/domain_watch.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <system_error>
#include <thread>

#include "host/base/address.h"
#include "host/base/input.h"
#include "host/base/log.h"
#include "host/base/words.h"
#include "host/report/merged_report.h"
#include "host/space/live_error.h"
#include "host/watch/service.h"
#include "host/watch/signals.h"

namespace host {
namespace {

class DomainWatch {
public:
    DomainWatch(const std::vector<WatchedDomain> &domains, const ControlSocket *socket,
                bool reads_standard_input)
        : domains_(domains),
          lines_(socket, [this](const LineServer::Line &line) { return execute(line); }) {
        const sigset_t set = blocked_signals();
        signals_ = Descriptor(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
        if (!signals_)
            throw LiveError("--watch: signals cannot be received: " +
                            std::generic_category().message(errno));
        if (reads_standard_input)
            lines_.read_stream(STDIN_FILENO);
    }

    bool run() {
        sd_notify(0, ("READY=1\nSTATUS=" + status()).c_str());
        while (!is_told_to_end() && !domains_.empty()) {
            std::vector<pollfd> waiting = descriptors();
            if (poll(waiting.data(), waiting.size(), timeout()) < 0 && errno != EINTR)
                std::this_thread::sleep_for(std::chrono::milliseconds(100));  // memory is short
            drop_ended(waiting);
            lines_.serve(waiting);
        }
        sd_notify(0, "STOPPING=1");
        for (const WatchedDomain &domain : domains_)
            domain.server->end();
        return all_stay_ && lines_.all_done();
    }

private:
    bool is_told_to_end() const {
        signalfd_siginfo signal{};
        return read(signals_.number(), &signal, sizeof signal) == sizeof signal &&
               signal.ssi_signo != SIGHUP;
    }

    std::vector<pollfd> descriptors() const {
        std::vector<pollfd> all = {{.fd = signals_.number(), .events = POLLIN, .revents = 0}};
        for (const WatchedDomain &domain : domains_)
            all.push_back({.fd = domain.server->descriptor(), .events = POLLIN, .revents = 0});
        lines_.wait_for(all);
        return all;
    }

    int timeout() const {
        const auto due = lines_.due();
        if (!due)
            return -1;
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(*due - LineServer::Clock::now());
        return static_cast<int>(std::max<std::int64_t>(left.count(), 0));
    }

    // A server says nothing unless it is asked, so that what can be read is its end.
    void drop_ended(const std::vector<pollfd> &waiting) {
        std::erase_if(domains_, [&](const WatchedDomain &domain) {
            const bool has_ended = std::ranges::any_of(waiting, [&](const pollfd &each) {
                return each.fd == domain.server->descriptor() && each.revents != 0;
            });
            if (has_ended && !termination_pending()) {
                log_error("domain " + domain_text(domain.number) +
                          ": the server has ended, those of other domains go on");
                all_stay_ = false;
            }
            return has_ended;
        });
    }

    LineServer::Outcome execute(const LineServer::Line &line) {
        if (termination_pending() || domains_.empty())
            return {.answer = "error: the servers are ending", .failed = false};
        const auto said = words(std::string_view(line.text).substr(0, line.text.find('#')));
        const bool is_alone = line.is_answered && said.size() == 1;
        if (is_alone && said.front() == "status")
            return {.answer = status(), .failed = false};
        if (is_alone && said.front() == "report")
            return {.answer = report(), .failed = false};
        const auto address = said.size() > 1 ? parse_address(said[1]) : std::nullopt;
        const unsigned number = address ? address->domain.value_or(0) : domains_.front().number;
        const auto domain = std::ranges::find(domains_, number, &WatchedDomain::number);
        if (domain == domains_.end())
            return refusal(line, "not in a domain that is served");
        const auto answer = domain->server->ask(relayed(line));
        return answer ? outcome_of(*answer) : refusal(line, "the server of the domain has ended");
    }

    static LineServer::Outcome refusal(const LineServer::Line &line, const char *reason) {
        const std::string text = line_complaint(line.source, line.number, reason, line.text);
        log_error(text);
        return {.answer = "error: " + text, .failed = false};
    }

    // Asks every server the same, and returns the answers of those that have not ended.
    std::vector<DomainReport> ask_all(const char *question) {
        const LineServer::Line line{
            .text = question, .source = "control", .number = 1, .is_answered = true};
        std::vector<DomainReport> answers;
        for (const WatchedDomain &domain : domains_)
            if (const auto answer = domain.server->ask(relayed(line)))
                answers.push_back({domain.number, outcome_of(*answer).answer});
        return answers;
    }

    // "domain 0000: 1 of 1 modules run; ...; domain 0002: ..."
    std::string status() {
        std::vector<std::string> texts;
        for (const DomainReport &answer : ask_all("status"))
            texts.push_back("domain " + domain_text(answer.domain) + ": " + answer.text);
        return join(texts, "; ");
    }

    std::string report() {
        const std::vector<DomainReport> reports = ask_all("report");
        return reports.empty() ? "error: the servers are ending"
                               : merged_json_line(reports, log_record());
    }

    std::vector<WatchedDomain> domains_;  // whose servers have not ended
    Descriptor signals_;
    LineServer lines_;
    bool all_stay_ = true;
};

}  // namespace

bool watch_domains(const std::vector<WatchedDomain> &domains, const ControlSocket *socket,
                   bool reads_standard_input) {
    return DomainWatch(domains, socket, reads_standard_input).run();
}

}  // namespace host
