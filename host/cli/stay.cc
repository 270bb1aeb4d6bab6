#include "host/cli/stay.h"

#include <algorithm>
#include <array>

#include "host/base/input.h"
#include "host/base/log.h"
#include "host/base/words.h"
#include "host/report/report_json.h"
#include "host/report/report_text.h"

namespace host {
namespace {

constexpr const char *HELP =
    "flr FUNCTION: function-level reset; bus-reset FUNCTION: reset of all below the bridge above "
    "it; status: a line; report: the JSON report as a line; help: this line";

Report report_now(const Stay &stay) {
    Report report = stay.report;
    refresh_report(report, stay.machine, stay.domain);
    end_report(report, stay.machine, stay.modules);
    report.requests = judge(stay.feature_files, {stay.machine, report});
    return report;
}

// "1 of 1 modules run"
std::string modules_text(const Stay &stay) {
    const auto running = std::ranges::count_if(stay.modules, &ModuleResult::runs);
    return std::to_string(running) + " of " + std::to_string(stay.modules.size()) + " modules run";
}

// "2026-01-31T12:00:00Z"
std::string time_text(std::time_t time) {
    std::tm parts{};
    std::array<char, 32> text{};
    gmtime_r(&time, &parts);
    return {text.data(), std::strftime(text.data(), text.size(), "%FT%TZ", &parts)};
}

// "1 of 1 modules run; 47 functions, 34 changed; no access failed; since 2026-01-31T12:00:00Z"
std::string status_text(const Stay &stay, std::time_t started) {
    const std::string failures = failures_text(stay.source);
    return modules_text(stay) + "; " + summary_text(report_now(stay)) + "; " +
           (failures.empty() ? "no access failed" : failures) + "; since " + time_text(started);
}

std::string report_text(const Stay &stay) {
    Report report = report_now(stay);
    if (stay.source.live) {
        read_drivers(report, stay.source.live->sysfs());
        report.accesses = stay.source.live->accesses();
    }
    return json_line(report);
}

struct Question {
    std::string_view word;
    std::string (*answer)(const Stay &stay, std::time_t started);
};

constexpr std::array<Question, 3> QUESTIONS{{
    {.word = "status", .answer = status_text},
    {.word = "report", .answer = [](const Stay &stay, std::time_t) { return report_text(stay); }},
    {.word = "help", .answer = [](const Stay &, std::time_t) { return std::string(HELP); }},
}};

// Returns nullopt for a line that is an event or empty. Throws InputError.
std::optional<std::string> answer(const LineServer::Line &line, const Stay &stay,
                                  std::time_t started) {
    const auto said = words(std::string_view(line.text).substr(0, line.text.find('#')));
    if (!line.is_answered || said.empty() || is_event_word(said.front()))
        return std::nullopt;
    const auto refuse = [&](const char *reason) {
        throw InputError(line_complaint(line.source, line.number, reason, line.text));
    };
    const auto *const found = std::ranges::find(QUESTIONS, said.front(), &Question::word);
    if (found == QUESTIONS.end())
        refuse("unknown word (flr, bus-reset, status, report, help)");
    if (said.size() > 1)
        refuse("too many words");
    stay.machine.space().look_again();
    return found->answer(stay, started);
}

}  // namespace

LineServer::Outcome execute(const LineServer::Line &line, const Stay &stay, std::time_t started) {
    try {
        if (const auto text = answer(line, stay, started))
            return {.answer = *text, .failed = false};
        const auto events = stay.player.parse(line.text, line.source, stay.domain, line.number);
        const std::string reason = stay.player.play(events);
        if (reason.empty())
            return {.answer = "ok", .failed = false};
        return {.answer = "error: could not be brought about: " + reason, .failed = true};
    } catch (const InputError &error) {
        log_error(error.what());
        return {.answer = std::string("error: ") + error.what(), .failed = false};
    }
}

bool stay(Service &service, const Stay &stay) {
    if (std::ranges::none_of(stay.modules, &ModuleResult::runs)) {
        log_error("--watch: no module runs, there is nothing to stay for");
        return false;
    }
    read_states(stay.report, stay.machine);
    report_failures(stay.source);
    const auto started = std::time(nullptr);
    const auto refresh = [&](const std::vector<RoutingId> &come) {
        refresh_report(stay.report, stay.machine, stay.domain, come);
    };
    const auto outcome = [&](const std::vector<RoutingId> &come) {
        return "modules changed " + changes_text(count_changes(stay.report, stay.machine, come));
    };
    const auto status = [&, begun = modules_text(stay) +
                                    "; at start-up: " + summary_text(stay.report)] {
        const std::string failures = failures_text(stay.source);
        return failures.empty() ? begun : begun + "; " + failures;
    };
    const bool all_done = service.serve_until_told(
        stay.machine, *stay.source.live,
        {.execute = [&](const LineServer::Line &line) { return execute(line, stay, started); },
         .hot_plug = {.inserted = refresh, .outcome = outcome},
         .status = status});
    refresh({});
    return all_done;
}

}  // namespace host
