#include "host/report/report_json.h"

#include <cstdio>
#include <nlohmann/json.hpp>
#include <ostream>

#include "host/report/report_text.h"

namespace host {
namespace {

using Json = nlohmann::ordered_json;

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

Json findings_json(const Report &report, const std::vector<Finding> &findings) {
    Json json = Json::array();
    for (const Finding &finding : findings)
        json.push_back({{"code", finding.code},
                        {"severity", severity_text(finding.severity)},
                        {"function", report.functions[finding.function].address},
                        {"text", finding.text}});
    return json;
}

Json module_json(const ModuleResult &module) {
    return {{"file", module.file},
            {"version", module.version ? Json(version_text(*module.version)) : Json(nullptr)},
            {"result", value_or_null(module.result)}};
}

Json report_json(const Report &report) {
    Json functions = Json::array();
    for (const FunctionReport &row : report.functions)
        functions.push_back(function_json(row));
    Json hierarchies = Json::array();
    for (const HierarchyReport &hierarchy : report.hierarchies)
        hierarchies.push_back(hierarchy_json(report, hierarchy));
    Json modules = Json::array();
    for (const ModuleResult &module : report.modules)
        modules.push_back(module_json(module));
    return {{"format", 2},
            {"functions", std::move(functions)},
            {"hierarchies", std::move(hierarchies)},
            {"findings",
             {{"before", findings_json(report, report.found)},
              {"after", findings_json(report, report.findings)}}},
            {"modules", std::move(modules)},
            {"messages",
             {{"error", report.messages.error},
              {"warning", report.messages.warning},
              {"info", report.messages.info},
              {"debug", report.messages.debug}}}};
}

// Only ASCII is written, so that no terminal obeys what names hold. Bytes of file names that are no
// UTF-8 are replaced instead of being an error.
std::string text_of(const Json &json, int indent) {
    return json.dump(indent, ' ', true, Json::error_handler_t::replace);
}

}  // namespace

void write_json(std::ostream &out, const Report &report) {
    out << text_of(report_json(report), 2) << '\n';
}

std::string json_line(const Report &report) {
    return text_of(report_json(report), -1);
}

}  // namespace host
