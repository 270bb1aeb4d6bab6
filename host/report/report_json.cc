#include "host/report/report_json.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ostream>
#include <sstream>

#include "host/base/address.h"
#include "host/base/safe_text.h"
#include "host/report/function_name.h"
#include "host/report/json_writer.h"
#include "host/report/report_text.h"
#include "host/report/selection.h"

namespace host {
namespace {

// Returns the value, or null.
template <typename Value>
Json value_or_null(const std::optional<Value> &value) {
    return value ? Json(*value) : Json(nullptr);
}

Json text_or_null(const std::string &text) {
    return text.empty() ? Json(nullptr) : Json(text);
}

Json address_or_null(const Report &report, const std::optional<std::size_t> &index) {
    return index ? Json(report.functions[*index].address) : Json(nullptr);
}

Json bus_json(const Function &bridge, std::uint8_t bus) {
    return bridge.is_bridge() ? Json(bus_text(bus)) : Json(nullptr);
}

// Returns null for functions of which the value is not known, because they do not answer.
Json hexadecimal(const Function &function, unsigned digits, std::uint32_t value) {
    if (!function.answers && !function.physical)
        return nullptr;
    char text[16];
    std::snprintf(text, sizeof text, "%0*x", static_cast<int>(digits), value);
    return text;
}

Json payload_json(const FeatureState &state) {
    return state.mps ? value_or_null(state.mps->current) : Json(nullptr);
}

Json mps_json(const FunctionReport &row) {
    if (!row.before.mps)
        return nullptr;
    return {{"supported", value_or_null(row.before.mps->supported)},
            {"before", payload_json(row.before)},
            {"after", payload_json(row.after)},
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

Json driver_json(const Report &report, const FunctionReport &row) {
    const auto driver = report.drivers.find(row.function.id());
    return driver == report.drivers.end() ? Json(nullptr) : Json(safe_text(driver->second));
}

Json function_json(const Report &report, const FunctionReport &row) {
    const auto index = static_cast<std::size_t>(&row - report.functions.data());
    const Function &function = row.function;
    return {{"bdf", row.address},
            {"domain", domain_text(report.domain)},
            {"name", text_or_null(device_name(row))},
            {"vendor", hexadecimal(function, 4, function.vendor)},
            {"device", hexadecimal(function, 4, function.device)},
            {"class", hexadecimal(function, 6, function.class_code)},
            {"type", type_text(function)},
            {"port_type", value_or_null(function.port_type)},
            {"ari", (function.bdf & BDF_ARI_FLAG) != 0},
            {"physical_function", text_or_null(row.physical)},
            {"parent", address_or_null(report, row.bridge)},
            {"root_port", address_or_null(report, root_port_of(report.functions, index))},
            {"secondary", bus_json(function, function.secondary)},
            {"subordinate", bus_json(function, function.subordinate)},
            {"driver", driver_json(report, row)},
            {"managed", row.managed},
            {"changed", row.changed()},
            {"gone", text_or_null(gone_text(row))},
            {"mps", mps_json(row)},
            {"ecrc", ecrc_json(row)},
            {"ecrc_unknown", row.after.ecrc_unknown}};
}

// In percent, with two digits behind the point.
Json gain_json(const HierarchyReport &hierarchy) {
    if (!hierarchy.possible || !hierarchy.path_max)
        return nullptr;
    return std::round(100 * payload_gain(*hierarchy.path_max, *hierarchy.possible)) / 100;
}

Json hierarchy_json(const Report &report, const HierarchyReport &hierarchy) {
    Json limiters = Json::array();
    for (const std::size_t limiter : hierarchy.limiters)
        limiters.push_back(report.functions[limiter].address);
    const FunctionReport &root_port = report.functions[hierarchy.root_port];
    return {{"root_port", root_port.address},
            {"path_max", value_or_null(hierarchy.path_max)},
            {"limiters", std::move(limiters)},
            {"possible", value_or_null(hierarchy.possible)},
            {"gain", gain_json(hierarchy)},
            {"before", payload_json(root_port.before)},
            {"after", payload_json(root_port.after)},
            {"left_alone", text_or_null(left_alone_text(report, hierarchy))},
            {"text", limit_text(report, hierarchy)}};
}

Json finding_json(const Report &report, const Finding &finding) {
    return {{"code", finding.code},
            {"severity", severity_text(finding.severity)},
            {"function", report.functions[finding.function].address},
            {"text", finding.text}};
}

Json ecrc_request_json(std::optional<bool> requested, const FunctionReport &row,
                       EcrcControl EcrcState::*control) {
    if (!requested)
        return nullptr;
    return {
        {"requested", *requested},
        {"reached", row.after.ecrc ? Json(((*row.after.ecrc).*control).enabled) : Json(nullptr)}};
}

Json requested_function_json(const Report &report, const RequestedFunction &asked) {
    const FunctionReport &row = report.functions[asked.function];
    return {{"bdf", row.address},
            {"mps", asked.payload_size
                        ? Json{{"requested", *asked.payload_size},
                               {"reached", row.after.mps ? value_or_null(row.after.mps->current)
                                                         : Json(nullptr)}}
                        : Json(nullptr)},
            {"gen", ecrc_request_json(asked.generation, row, &EcrcState::gen)},
            {"chk", ecrc_request_json(asked.checking, row, &EcrcState::chk)}};
}

Json request_json(const Report &report, const RequestReport &request) {
    Json functions = Json::array();
    for (const RequestedFunction &asked : request.functions)
        functions.push_back(requested_function_json(report, asked));
    return {{"domain", domain_text(report.domain)},
            {"file", request.file},
            {"line", request.line != 0 ? Json(request.line) : Json(nullptr)},
            {"keyword", text_or_null(request.keyword)},
            {"value", text_or_null(request.value)},
            {"status", status_word(request.status)},
            {"reason", text_or_null(request.reason)},
            {"selected", request.selected},
            {"reached", request.reached},
            {"functions", std::move(functions)}};
}

Json module_json(const Report &report, const ModuleResult &module) {
    return {{"domain", domain_text(report.domain)},
            {"file", module.file},
            {"version", module.version ? Json(version_text(*module.version)) : Json(nullptr)},
            {"result", value_or_null(module.result)}};
}

// Tells programs whether the report has all functions.
Json shown_json(const Report &report) {
    return {{"functions", std::ranges::count(report.functions, true, &FunctionReport::selected)},
            {"of", report.functions.size()}};
}

Json accesses_json(const std::optional<Accesses> &accesses) {
    if (!accesses)
        return nullptr;
    return {{"reads", accesses->reads}, {"writes", accesses->writes}, {"opens", accesses->opens}};
}

void write_findings(JsonWriter &json, const Report &report) {
    const auto row = [&](const Finding &finding) { return finding_json(report, finding); };
    const auto is_written = [&](const Finding &finding) { return is_shown(report, finding); };
    json.open("findings", '{');
    json.array("before", report.found, row, is_written);
    json.array("after", report.findings, row, is_written);
    json.close('}');
}

void write_messages(JsonWriter &json, const LogRecord &messages) {
    const LogCounts &counts = messages.counts;
    json.open("messages", '{');
    json.value("error", counts.error);
    json.value("warning", counts.warning);
    json.value("info", counts.info);
    json.value("debug", counts.debug);
    json.value("left_out", messages.left_out());
    json.array("list", messages.kept, message_json);
    json.close('}');
}

void write_report(JsonWriter json, const Report &report) {
    json.open();
    json.value("format", 2);
    json.value("shown", shown_json(report));
    json.array(
        "functions", report.functions,
        [&](const FunctionReport &row) { return function_json(report, row); },
        &FunctionReport::selected);
    json.array(
        "hierarchies", report.hierarchies,
        [&](const HierarchyReport &hierarchy) { return hierarchy_json(report, hierarchy); },
        [&](const HierarchyReport &hierarchy) {
            return report.functions[hierarchy.root_port].shown;
        });
    write_findings(json, report);
    json.array("modules", report.modules,
               [&](const ModuleResult &module) { return module_json(report, module); });
    json.array("requests", report.requests,
               [&](const RequestReport &request) { return request_json(report, request); });
    json.value("accesses", accesses_json(report.accesses));
    write_messages(json, report.messages);
    json.close('}');
}

}  // namespace

Json message_json(const KeptMessage &message) {
    return {{"severity", severity_name(message.severity)},
            {"verbosity", message.verbosity},
            {"shown", message.shown},
            {"text", message.text}};
}

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
