#include "host/report/report_json.h"

#include <cstdio>
#include <ostream>
#include <sstream>

#include "host/report/json_writer.h"
#include "host/report/report_text.h"

namespace host {
namespace {

// Returns the value, or null.
template <typename Value>
Json value_or_null(const std::optional<Value> &value) {
    return value ? Json(*value) : Json(nullptr);
}

Json class_json(const Function &function) {
    if (!function.answers && !function.physical)
        return nullptr;
    char text[8];
    std::snprintf(text, sizeof text, "%06x", function.class_code & 0xFFFFFFU);
    return text;
}

Json mps_json(const FunctionReport &row) {
    if (!row.before.mps)
        return nullptr;
    return {{"supported", value_or_null(row.before.mps->supported)},
            {"before", value_or_null(row.before.mps->current)},
            {"after", row.after.mps ? value_or_null(row.after.mps->current) : Json(nullptr)},
            {"completed", row.completed}};
}

Json control_json(const FunctionReport &row, EcrcControl EcrcState::*control) {
    const EcrcControl before = (*row.before.ecrc).*control;
    return {{"capable", before.capable},
            {"before", before.enabled},
            {"after", row.after.ecrc ? Json(((*row.after.ecrc).*control).enabled) : Json(nullptr)}};
}

Json ecrc_json(const FunctionReport &row) {
    if (!row.before.ecrc)
        return nullptr;
    return {{"gen", control_json(row, &EcrcState::gen)},
            {"chk", control_json(row, &EcrcState::chk)}};
}

Json function_json(const FunctionReport &row) {
    return {{"bdf", row.address},
            {"ari", (row.function.bdf & BDF_ARI_FLAG) != 0},
            {"class", class_json(row.function)},
            {"port_type", value_or_null(row.function.port_type)},
            {"physical_function", row.physical.empty() ? Json(nullptr) : Json(row.physical)},
            {"managed", row.managed},
            {"mps", mps_json(row)},
            {"ecrc", ecrc_json(row)}};
}

Json hierarchy_json(const Report &report, const HierarchyReport &hierarchy) {
    const auto address = [&](std::size_t index) { return report.functions[index].address; };
    Json limiters = Json::array();
    for (const std::size_t limiter : hierarchy.limiters)
        limiters.push_back(address(limiter));
    const std::string reason = left_alone_text(report, hierarchy);
    return {{"root_port", address(hierarchy.root_port)},
            {"path_max", value_or_null(hierarchy.path_max)},
            {"limiters", std::move(limiters)},
            {"possible", value_or_null(hierarchy.possible)},
            {"current", value_or_null(hierarchy.current)},
            {"left_alone", reason.empty() ? Json(nullptr) : Json(reason)}};
}

Json finding_json(const Report &report, const Finding &finding) {
    return {{"code", finding.code},
            {"severity", severity_text(finding.severity)},
            {"function", report.functions[finding.function].address},
            {"text", finding.text}};
}

Json module_json(const ModuleResult &module) {
    return {{"file", module.file},
            {"version", module.version ? Json(version_text(*module.version)) : Json(nullptr)},
            {"result", value_or_null(module.result)}};
}

void write_findings(JsonWriter &json, const Report &report) {
    const auto row = [&](const Finding &finding) { return finding_json(report, finding); };
    json.open("findings", '{');
    json.array("before", report.found, row);
    json.array("after", report.findings, row);
    json.close('}');
}

void write_report(JsonWriter json, const Report &report) {
    json.open();
    json.value("format", 2);
    json.array("functions", report.functions, function_json);
    json.array("hierarchies", report.hierarchies,
               [&](const HierarchyReport &hierarchy) { return hierarchy_json(report, hierarchy); });
    write_findings(json, report);
    json.array("modules", report.modules, module_json);
    json.value("messages", {{"error", report.messages.error},
                            {"warning", report.messages.warning},
                            {"info", report.messages.info},
                            {"debug", report.messages.debug}});
    json.close('}');
}

}  // namespace

void write_json(std::ostream &out, const Report &report) {
    write_report({out, JsonWriter::Form::LINES}, report);
    out << '\n';
}

std::string json_line(const Report &report) {
    std::ostringstream out;
    write_report({out, JsonWriter::Form::ONE_LINE}, report);
    return std::move(out).str();
}

}  // namespace host
