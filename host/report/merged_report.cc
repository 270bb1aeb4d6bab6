#include "host/report/merged_report.h"

#include <algorithm>
#include <ostream>
#include <sstream>
#include <string_view>

#include "host/base/address.h"
#include "host/base/words.h"
#include "host/report/json_writer.h"
#include "host/report/report_dot.h"
#include "host/report/report_metrics.h"

namespace host {
namespace {

constexpr const char *FORMAT = "format";  // the one number that is no count

void add(Json &sum, Json more) {
    if (sum.is_array())
        for (Json &row : more)
            sum.push_back(std::move(row));
    else if (sum.is_null())
        return;  // accesses, of a dump
    else if (sum.is_number())
        sum = sum.get<std::uint64_t>() + more.get<std::uint64_t>();
    else
        for (auto &[name, value] : sum.items())
            if (name != FORMAT)
                add(value, std::move(more.at(name)));
}

void add(Json &messages, const LogRecord &own) {
    const auto count = [&](const char *name, std::uint64_t more) {
        messages[name] = messages[name].get<std::uint64_t>() + more;
    };
    count("error", own.counts.error);
    count("warning", own.counts.warning);
    count("info", own.counts.info);
    count("debug", own.counts.debug);
    count("left_out", own.left_out());
    for (const KeptMessage &message : own.kept)
        messages["list"].push_back(message_json(message));
}

void write(JsonWriter &json, const char *name, const Json &value) {
    if (value.is_array())
        return json.array(name, value, [](const Json &row) { return row; });
    if (!value.is_object())
        return json.value(name, value);
    json.open(name, '{');
    for (const auto &[member, part] : value.items())
        write(json, member.c_str(), part);
    json.close('}');
}

void write_merged(JsonWriter json, const std::vector<DomainReport> &reports, const LogRecord &own) {
    Json sum = Json::parse(reports.front().text);
    for (std::size_t i = 1; i < reports.size(); ++i)
        add(sum, Json::parse(reports[i].text));
    add(sum["messages"], own);
    json.open();
    for (const auto &[name, value] : sum.items())
        write(json, name.c_str(), value);
    json.close('}');
}

// Returns the pieces of metrics that begin with a line "# HELP NAME ...", one for each name. A
// file's name, which stands within a line, may hold the same.
std::vector<std::string_view> families_in(std::string_view text) {
    text.remove_suffix(METRICS_END.size());
    std::vector<std::string_view> families;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find("\n# HELP "), text.size() - 1) + 1;
        families.push_back(text.substr(0, end));
        text.remove_prefix(end);
    }
    return families;
}

// Returns what stands behind "# HELP ..." and "# TYPE ...".
std::string_view samples_in(std::string_view family) {
    return family.substr(family.find('\n', family.find("\n# TYPE ") + 1) + 1);
}

}  // namespace

void write_merged_tables(std::ostream &out, const std::vector<DomainReport> &reports) {
    for (const DomainReport &report : reports)
        out << (&report == reports.data() ? "" : "\n") << "Domain " << domain_text(report.domain)
            << ":\n"
            << report.text;
}

void write_merged_json(std::ostream &out, const std::vector<DomainReport> &reports,
                       const LogRecord &own) {
    write_merged({out, JsonWriter::Form::LINES}, reports, own);
    out << '\n';
}

std::string merged_json_line(const std::vector<DomainReport> &reports, const LogRecord &own) {
    std::ostringstream out;
    write_merged({out, JsonWriter::Form::ONE_LINE}, reports, own);
    return std::move(out).str();
}

// All texts have the same families, in the same order.
void write_merged_metrics(std::ostream &out, const std::vector<DomainReport> &reports,
                          const LogRecord &own) {
    std::vector<std::vector<std::string_view>> texts;
    for (const DomainReport &report : reports)
        texts.push_back(families_in(report.text));
    for (std::size_t i = 0; i < texts[0].size(); ++i) {
        out << texts[0][i];
        for (std::size_t report = 1; report < texts.size(); ++report)
            out << samples_in(texts[report].at(i));
        if (texts[0][i].starts_with(std::string("# HELP ") + MESSAGE_METRIC + ' '))
            write_message_metrics(out, "none", own.counts);
    }
    out << METRICS_END;
}

void write_merged_dot(std::ostream &out, const std::vector<DomainReport> &reports) {
    std::vector<std::string> titles;
    std::string machines;
    for (const DomainReport &report : reports) {
        const std::size_t end = report.text.find('\n');
        titles.push_back("Domain " + domain_text(report.domain) + ": " +
                         report.text.substr(0, end));
        machines += report.text.substr(end + 1);
    }
    write_dot_graph(out, join(titles, "; "), machines);
}

}  // namespace host
