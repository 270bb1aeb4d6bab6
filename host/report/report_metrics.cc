#include "host/report/report_metrics.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <ctime>
#include <iterator>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "host/base/address.h"

namespace host {
namespace {

struct Sample {
    std::vector<std::pair<const char *, std::string>> labels;  // beside the domain
    std::int64_t value;
};
using Samples = std::vector<Sample>;

Samples build_info(const Report &) {
    return {{{{"version", version_text(SERVER_VERSION)}}, 1}};
}

Samples run_timestamp(const Report &) {
    return {{{}, std::time(nullptr)}};
}

Samples feature_files(const Report &report) {
    Samples samples;
    for (const FileChecksum &file : report.feature_files)
        samples.push_back({{{"file", file.file}, {"cksum", std::to_string(file.checksum)}}, 1});
    return samples;
}

Samples modules(const Report &report) {
    const std::int64_t running = std::ranges::count_if(report.modules, &ModuleResult::runs);
    const auto all = static_cast<std::int64_t>(report.modules.size());
    return {{{{"state", "running"}}, running}, {{{"state", "failed"}}, all - running}};
}

// A fleet's file may name functions that only some of its machines have, or one of their domains.
Samples requests(const Report &report) {
    Samples samples;
    for (const RequestStatus status : REQUEST_STATUSES)
        samples.push_back({{{"status", status_word(status)}},
                           std::ranges::count_if(report.requests, [&](const RequestReport &row) {
                               return row.status == status && !row.is_absent;
                           })});
    const auto absent = std::ranges::count(report.requests, true, &RequestReport::is_absent);
    samples.push_back({{{"status", "absent"}}, absent});
    return samples;
}

Samples count_messages(const LogCounts &counts) {
    return {{{{"severity", "error"}}, static_cast<std::int64_t>(counts.error)},
            {{{"severity", "warning"}}, static_cast<std::int64_t>(counts.warning)}};
}

Samples messages(const Report &report) {
    return count_messages(report.messages.counts);
}

Samples findings(const Report &report) {
    Samples samples;
    for (const FindingKind &kind : finding_kinds()) {
        const auto is_one = [&](const FindingKind &each) { return each == kind; };
        samples.push_back({{{"code", kind.code}, {"severity", severity_text(kind.severity)}},
                           std::ranges::count_if(report.findings, is_one)});
    }
    return samples;
}

Samples functions(const Report &report) {
    return {{{}, std::ssize(report.functions)}};
}

template <auto IsCounted>
Samples count_functions(const Report &report) {
    return {{{}, std::ranges::count_if(report.functions, IsCounted)}};
}

template <bool EcrcControl::*Property>
Samples count_ecrc(const Report &report) {
    const auto count = [&](EcrcControl EcrcState::*control) {
        return std::ranges::count_if(report.functions, [&](const FunctionReport &row) {
            return row.after.ecrc && (*row.after.ecrc).*control.*Property;
        });
    };
    return {{{{"control", "generation"}}, count(&EcrcState::gen)},
            {{{"control", "checking"}}, count(&EcrcState::chk)}};
}

// Reserved codes stand for no size.
template <typename SizeOf>
Samples count_hierarchies(const Report &report, SizeOf &&size_of) {
    Samples samples;
    auto unknown = static_cast<std::int64_t>(report.hierarchies.size());
    for (const unsigned size : {128U, 256U, 512U, 1024U, 2048U, 4096U}) {
        const auto count = std::ranges::count(report.hierarchies, std::optional(size), size_of);
        samples.push_back({{{"bytes", std::to_string(size)}}, count});
        unknown -= count;
    }
    samples.push_back({{{"bytes", "unknown"}}, unknown});
    return samples;
}

Samples hierarchies_by_payload(const Report &report) {
    return count_hierarchies(report, [&](const HierarchyReport &hierarchy) {
        const FeatureState &state = report.functions[hierarchy.root_port].after;
        return state.mps ? state.mps->current : std::nullopt;
    });
}

Samples hierarchies_by_path_max(const Report &report) {
    return count_hierarchies(report, &HierarchyReport::path_max);
}

// A family is all that has one name.
struct Family {
    const char *name;
    const char *help;  // without characters that would have to be escaped
    Samples (*samples)(const Report &report);
};

constexpr std::array FAMILIES = {
    Family{"hoplar_build_info", "Version of hoplar that made the report.", build_info},
    Family{"hoplar_run_timestamp_seconds", "Time at which the run ended.", run_timestamp},
    Family{"hoplar_feature_file_info",
           "Feature file of this run, with the first number that cksum(1) prints of it.",
           feature_files},
    Family{"hoplar_requests", "Lines of feature files, by what they have reached.", requests},
    Family{"hoplar_modules", "Modules, by whether they run.", modules},
    Family{MESSAGE_METRIC, "Messages of the run, shown or not.", messages},
    Family{"hoplar_findings", "Findings at the end of the run.", findings},
    Family{"hoplar_functions", "Functions, virtual ones included.", functions},
    Family{"hoplar_functions_changed",
           "Functions with a setting that the run has changed, or would change with --write.",
           count_functions<&FunctionReport::changed>},
    Family{"hoplar_functions_silent", "Functions that should answer and do not.",
           count_functions<&FunctionReport::is_silent>},
    Family{"hoplar_functions_ecrc_capable", "Functions that could generate or check ECRC.",
           count_ecrc<&EcrcControl::capable>},
    Family{"hoplar_functions_ecrc_enabled", "Functions that generate or check ECRC.",
           count_ecrc<&EcrcControl::enabled>},
    Family{"hoplar_hierarchies_by_payload",
           "Hierarchies, by the payload size that their root port is set to.",
           hierarchies_by_payload},
    Family{"hoplar_hierarchies_by_path_max",
           "Hierarchies, by the largest payload size that everything in them supports.",
           hierarchies_by_path_max},
};

// All values are safe text, which holds no line ends, which would have to be escaped too.
std::string escaped(const std::string &text) {
    std::string value;
    for (const char character : text) {
        if (character == '\\' || character == '"')
            value += '\\';
        value += character;
    }
    return value;
}

void write_samples(std::ostream &out, const char *name, const std::string &domain,
                   const Samples &samples) {
    for (const Sample &sample : samples) {
        out << name << "{domain=\"" << domain << '"';
        for (const auto &[label, value] : sample.labels)
            out << ',' << label << "=\"" << escaped(value) << '"';
        out << "} " << sample.value << '\n';
    }
}

}  // namespace

void write_message_metrics(std::ostream &out, const std::string &domain, const LogCounts &counts) {
    write_samples(out, MESSAGE_METRIC, domain, count_messages(counts));
}

void write_metrics(std::ostream &out, const Report &report) {
    for (const auto &[name, help, samples] : FAMILIES) {
        out << "# HELP " << name << ' ' << help << "\n# TYPE " << name << " gauge\n";
        write_samples(out, name, domain_text(report.domain), samples(report));
    }
    out << METRICS_END;
}

}  // namespace host
