// A value is known by its path, such as "functions[].mps.after": a table says which of them are
// kept, and where. A row of an array is added when its object ends.
#include "tools/fleet/report_reader.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <variant>

namespace fleet {
namespace {

using nlohmann::json;

constexpr std::int64_t FORMAT = 2;

using Value = std::variant<std::nullptr_t, bool, std::int64_t, double, std::string_view>;

// The rows that are being read, in the types of their values.
struct Rows {
    std::optional<std::int64_t> format;
    FunctionState function{};
    Device device;
    std::string physical_function;
    Hierarchy hierarchy;
    Finding finding;
    Request request;
    MachineReport report;
};

// Each returns false for a value of another type.
bool take(std::string &text, const Value &value) {
    const auto *const given = std::get_if<std::string_view>(&value);
    text = given != nullptr ? *given : "";
    return given != nullptr || std::holds_alternative<std::nullptr_t>(value);
}

template <typename Number>
bool take(std::optional<Number> &number, const Value &value) {
    number.reset();
    if (const auto *const given = std::get_if<Number>(&value))
        number = *given;
    else if (const auto *const whole = std::get_if<std::int64_t>(&value);
             whole != nullptr && std::is_same_v<Number, double>)
        number = static_cast<Number>(*whole);
    return number || std::holds_alternative<std::nullptr_t>(value);
}

template <typename Plain>
bool take(Plain &plain, const Value &value) {
    const auto *const given = std::get_if<Plain>(&value);
    if (given != nullptr)
        plain = *given;
    return given != nullptr;
}

bool take(std::vector<std::string> &list, const Value &value) {
    return take(list.emplace_back(), value);
}

using Take = bool (*)(Rows &rows, const Value &value);

template <auto Row, auto Field>
bool take_field(Rows &rows, const Value &value) {
    return take((rows.*Row).*Field, value);
}

template <auto Field>
bool take_own(Rows &rows, const Value &value) {
    return take(rows.*Field, value);
}

const std::unordered_map<std::string_view, Take> FIELDS = {
    {"format", take_own<&Rows::format>},
    {"shown.functions", take_field<&Rows::report, &MachineReport::shown>},
    {"shown.of", take_field<&Rows::report, &MachineReport::functions_of_machine>},
    {"functions[].bdf", take_field<&Rows::function, &FunctionState::address>},
    {"functions[].vendor", take_field<&Rows::device, &Device::vendor>},
    {"functions[].device", take_field<&Rows::device, &Device::device>},
    {"functions[].name", take_field<&Rows::device, &Device::name>},
    {"functions[].ari", take_field<&Rows::function, &FunctionState::ari>},
    {"functions[].physical_function", take_own<&Rows::physical_function>},
    {"functions[].mps.supported", take_field<&Rows::function, &FunctionState::supported>},
    {"functions[].mps.after", take_field<&Rows::function, &FunctionState::payload>},
    {"functions[].ecrc.gen.capable", take_field<&Rows::function, &FunctionState::can_generate>},
    {"functions[].ecrc.chk.capable", take_field<&Rows::function, &FunctionState::can_check>},
    {"functions[].ecrc.gen.after", take_field<&Rows::function, &FunctionState::generation>},
    {"functions[].ecrc.chk.after", take_field<&Rows::function, &FunctionState::checking>},
    {"hierarchies[].path_max", take_field<&Rows::hierarchy, &Hierarchy::path_max>},
    {"hierarchies[].limiters[]", take_field<&Rows::hierarchy, &Hierarchy::limiters>},
    {"hierarchies[].possible", take_field<&Rows::hierarchy, &Hierarchy::possible>},
    {"hierarchies[].gain", take_field<&Rows::hierarchy, &Hierarchy::gain>},
    {"hierarchies[].after", take_field<&Rows::hierarchy, &Hierarchy::after>},
    {"findings.after[].code", take_field<&Rows::finding, &Finding::code>},
    {"findings.after[].severity", take_field<&Rows::finding, &Finding::severity>},
    {"findings.after[].function", take_field<&Rows::finding, &Finding::address>},
    {"requests[].keyword", take_field<&Rows::request, &Request::keyword>},
    {"requests[].value", take_field<&Rows::request, &Request::value>},
    {"requests[].status", take_field<&Rows::request, &Request::status>},
    {"requests[].reason", take_field<&Rows::request, &Request::reason>},
};

// Adds a row that has ended. Returns false where it lacks what tells it from others.
using AddRow = bool (*)(Rows &rows, Devices &devices);

// Virtual functions come and go with a setting, and have no payload size of their own.
bool add_function(Rows &rows, Devices &devices) {
    FunctionState function = std::exchange(rows.function, {});
    const Device device = std::exchange(rows.device, {});
    if (function.address.empty())
        return false;
    if (!std::exchange(rows.physical_function, {}).empty())
        return true;
    function.device = devices.index_of(device);
    rows.report.functions.push_back(std::move(function));
    return true;
}

bool add_hierarchy(Rows &rows, Devices & /*unused*/) {
    rows.report.hierarchies.push_back(std::exchange(rows.hierarchy, {}));
    return true;
}

bool add_finding(Rows &rows, Devices & /*unused*/) {
    rows.report.findings.push_back(std::exchange(rows.finding, {}));
    return !rows.report.findings.back().code.empty();
}

bool add_request(Rows &rows, Devices & /*unused*/) {
    Request request = std::exchange(rows.request, {});
    const bool has_status = !request.status.empty();
    if (request.status != "reached" && request.status != "replaced")
        rows.report.requests.push_back(std::move(request));
    return has_status;
}

// A report has each of these arrays.
struct RowKind {
    std::string_view path;
    AddRow add;
};
constexpr std::array<RowKind, 4> ROW_KINDS = {{{"functions[]", add_function},
                                               {"hierarchies[]", add_hierarchy},
                                               {"findings.after[]", add_finding},
                                               {"requests[]", add_request}}};

// Returns what the library says behind "[NUMBER] ", and behind its own place of the error.
std::string_view reason_of(std::string_view text) {
    text.remove_prefix(std::min(text.find("] ") + 2, text.size()));
    const std::size_t place = text.starts_with("parse error at ") ? text.find(": ") : text.npos;
    return place == text.npos ? text : text.substr(place + 2);
}

// The interface that the parser calls; false ends it.
class Reader : public nlohmann::json_sax<json> {
public:
    Reader(const ReportInput &in, Devices &devices) : in_(in), devices_(devices) {}

    bool null() override { return take_value(nullptr); }
    bool boolean(bool value) override { return take_value(value); }
    bool number_integer(number_integer_t value) override { return take_value(value); }
    bool number_unsigned(number_unsigned_t value) override {
        return take_value(static_cast<std::int64_t>(value));
    }
    bool number_float(number_float_t value, const string_t & /*unused*/) override {
        return take_value(value);
    }
    bool string(string_t &value) override { return take_value(std::string_view(value)); }
    bool binary(binary_t & /*unused*/) override { return false; }  // JSON has none

    // A report that was cut off behind a name would go on with the next one as its value.
    bool start_object(std::size_t /*unused*/) override {
        if (!levels_.empty() && !path_.ends_with("[]") && in_.has_begun_line())
            return refuse("the report ends behind " + path_ + ", and another one begins");
        levels_.push_back(path_.size());
        return true;
    }
    bool key(string_t &name) override {
        path_.resize(levels_.back());
        path_ += path_.empty() ? "" : ".";
        path_ += name;
        return true;
    }
    bool end_object() override {
        path_.resize(levels_.back());
        levels_.pop_back();
        for (const RowKind &kind : ROW_KINDS)
            if (path_ == kind.path && !kind.add(rows_, devices_))
                return refuse("a row of " + path_ + " lacks what names it");
        return true;
    }
    bool start_array(std::size_t /*unused*/) override {
        if (levels_.empty())
            return refuse("is no report: a report is an object");
        levels_.push_back(path_.size());
        path_ += "[]";
        for (std::size_t i = 0; i < ROW_KINDS.size(); ++i)
            has_array_[i] = has_array_[i] || path_ == ROW_KINDS[i].path;
        return true;
    }
    bool end_array() override {
        path_.resize(levels_.back());
        levels_.pop_back();
        return true;
    }
    bool parse_error(std::size_t /*unused*/, const std::string & /*unused*/,
                     const nlohmann::detail::exception &error) override {
        return refuse(std::string(reason_of(error.what())));
    }

    // Returns what is wrong with the report; empty if nothing is.
    std::string complaint() const {
        if (!complaint_.empty())
            return complaint_;
        if (!rows_.format)
            return "is no report: it has no format";
        for (std::size_t i = 0; i < ROW_KINDS.size(); ++i)
            if (!has_array_[i])
                return "the report has no " + std::string(ROW_KINDS[i].path);
        return "";
    }
    MachineReport take_report() { return std::move(rows_.report); }

private:
    bool refuse(const std::string &reason) {
        complaint_ = reason;
        return false;
    }
    bool take_value(const Value &value) {
        if (levels_.empty())
            return refuse("is no report: a report is an object");
        const auto field = FIELDS.find(path_);
        if (field == FIELDS.end())
            return true;
        if (!field->second(rows_, value))
            return refuse(path_ + " has a value of another type");
        if (rows_.format && rows_.format != FORMAT)
            return refuse("has format " + std::to_string(*rows_.format) + ", only format " +
                          std::to_string(FORMAT) + " can be read");
        return true;
    }

    const ReportInput &in_;
    Devices &devices_;
    Rows rows_;
    std::string path_;
    std::vector<std::size_t> levels_;  // how long the path was where each array or object begins
    std::array<bool, ROW_KINDS.size()> has_array_{};
    std::string complaint_;
};

}  // namespace

MachineReport read_report(ReportInput &in, Devices &devices) {
    Reader reader(in, devices);
    json::sax_parse(in.stream(), &reader, json::input_format_t::json, false);
    if (const std::string complaint = reader.complaint(); !complaint.empty())
        in.refuse(complaint);
    return reader.take_report();
}

}  // namespace fleet
