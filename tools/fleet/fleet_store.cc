#include "tools/fleet/fleet_store.h"

#include <algorithm>
#include <functional>
#include <map>
#include <set>
#include <string_view>
#include <unordered_map>

#include "tools/fleet/sections.h"

namespace fleet {
namespace {

// model.places and content.states are the text of all that makes two of them the same; the number
// in front finds them. state has a row for each value that machines of one model are compared by.
constexpr const char *SCHEMA = R"(
CREATE TABLE device (id INTEGER PRIMARY KEY, vendor TEXT, device TEXT, name TEXT);
CREATE TABLE model (id INTEGER PRIMARY KEY, hash INTEGER, places TEXT);
CREATE INDEX model_hash ON model (hash);
CREATE TABLE place (model INTEGER, address TEXT, device INTEGER, PRIMARY KEY (model, address))
    WITHOUT ROWID;
CREATE TABLE content (id INTEGER PRIMARY KEY, hash INTEGER, model INTEGER, machines INTEGER,
    states TEXT, generation_capable INTEGER, generation_on INTEGER, checking_capable INTEGER,
    checking_on INTEGER);
CREATE INDEX content_hash ON content (hash);
CREATE TABLE state (content INTEGER, address TEXT, what TEXT, value TEXT,
    PRIMARY KEY (content, address, what)) WITHOUT ROWID;
CREATE TABLE finding (content INTEGER, code TEXT, severity TEXT);
CREATE TABLE hierarchy (id INTEGER PRIMARY KEY, content INTEGER, path_max INTEGER,
    possible INTEGER, gain REAL, after INTEGER, models INTEGER);
CREATE TABLE limiter (hierarchy INTEGER, device INTEGER, devices INTEGER);
CREATE TABLE machine (id INTEGER PRIMARY KEY, name TEXT, file TEXT, content INTEGER,
    partial INTEGER);
CREATE TABLE request (machine INTEGER, keyword TEXT, value TEXT, status TEXT, reason TEXT);
CREATE TABLE unreadable (reports INTEGER);
)";

// The state that most machines of a model have, the first one of several. Each other state differs
// from it by what has another value, what only it has, and what only the usual one has.
constexpr const char *DIFFERENCES = R"(
CREATE TABLE usual AS
    SELECT model, id AS content, machines, alike FROM
        (SELECT *, sum(machines) OVER (PARTITION BY model) AS alike,
                row_number() OVER (PARTITION BY model ORDER BY machines DESC, id) AS place
         FROM content)
    WHERE place = 1;
CREATE TABLE difference AS
    SELECT content, what, here, usual, count(*) AS functions, min(address) AS address FROM
        (SELECT c.id AS content, s.what, s.value AS here, u.value AS usual, s.address
         FROM content c JOIN usual n ON n.model = c.model AND n.content <> c.id
         JOIN state s ON s.content = c.id
         LEFT JOIN state u ON u.content = n.content AND u.address = s.address AND u.what = s.what
         WHERE u.value IS NOT s.value
         UNION ALL
         SELECT c.id, u.what, NULL, u.value, u.address
         FROM content c JOIN usual n ON n.model = c.model AND n.content <> c.id
         JOIN state u ON u.content = n.content
         LEFT JOIN state s ON s.content = c.id AND s.address = u.address AND s.what = u.what
         WHERE s.value IS NULL)
    GROUP BY content, what, here, usual;
CREATE INDEX difference_content ON difference (content);
)";

std::int64_t hash_of(const std::string &text) {
    return static_cast<std::int64_t>(std::hash<std::string>()(text));
}

std::optional<std::string> text_of(const std::optional<std::int64_t> &number) {
    return number ? std::optional(std::to_string(*number)) : std::nullopt;
}

std::optional<std::string> text_of(const std::optional<bool> &enabled) {
    return enabled ? std::optional<std::string>(*enabled ? "on" : "off") : std::nullopt;
}

std::string places_text(const MachineReport &report) {
    std::string text;
    for (const FunctionState &function : report.functions)
        text += function.address + " " + std::to_string(function.device) + "\n";
    return text;
}

// Calls `use` with each value that machines of one model are compared by.
template <typename Use>
void for_each_value(const MachineReport &report, Use &&use) {
    for (const FunctionState &function : report.functions) {
        use(function.address, "supported", text_of(function.supported));
        use(function.address, "payload", text_of(function.payload));
        use(function.address, "generation", text_of(function.generation));
        use(function.address, "checking", text_of(function.checking));
    }
    for (const Finding &finding : report.findings)
        use(finding.address, finding.code, std::optional(finding.severity));
}

template <typename Value>
void append(std::string &text, const std::optional<Value> &value) {
    text += value ? std::to_string(*value) : "";
    text += ' ';
}

// The model tells the functions' addresses. Hierarchies follow from what functions support, but for
// those of bridges that conflict.
std::string states_text(const MachineReport &report, std::int64_t model) {
    std::string text = std::to_string(model) + "\n";
    for (const FunctionState &function : report.functions) {
        append(text, function.supported);
        append(text, function.payload);
        append(text, function.generation);
        append(text, function.checking);
        append(text, function.can_generate);
        append(text, function.can_check);
    }
    for (const Finding &finding : report.findings)
        text += finding.address + " " + finding.code + " " + finding.severity + "\n";
    for (const Hierarchy &hierarchy : report.hierarchies) {
        for (const auto &size : {hierarchy.path_max, hierarchy.possible, hierarchy.after})
            append(text, size);
        append(text, hierarchy.gain);
        for (const std::string &limiter : hierarchy.limiters)
            text += limiter + " ";
    }
    return text;
}

std::int64_t functions_with(const MachineReport &report,
                            std::optional<bool> FunctionState::*control) {
    return std::ranges::count_if(report.functions, [&](const FunctionState &function) {
        return (function.*control).value_or(false);
    });
}

// The functions of a device have one bus and device number; those of an ARI device only one bus.
std::string device_address(const FunctionState &function) {
    const std::string &address = function.address;
    return address.substr(0, function.ari ? address.rfind(':') : address.rfind('.'));
}

using Functions = std::unordered_map<std::string_view, const FunctionState *>;

// Returns the limiting devices of each model, by their places. A report that shows only a part of
// its machine may lack their functions.
std::map<std::size_t, std::set<std::string>> limiters_of(const Hierarchy &hierarchy,
                                                         const Functions &functions) {
    std::map<std::size_t, std::set<std::string>> limiters;
    for (const std::string &address : hierarchy.limiters)
        if (const auto found = functions.find(address); found != functions.end())
            limiters[found->second->device].insert(device_address(*found->second));
    return limiters;
}

}  // namespace

FleetStore::FleetStore()
    : database_(SCHEMA),
      find_model_(database_.prepare("SELECT id FROM model WHERE hash = ? AND places = ?")),
      insert_model_(database_.prepare("INSERT INTO model VALUES (NULL, ?, ?)")),
      insert_place_(database_.prepare("INSERT OR REPLACE INTO place VALUES (?, ?, ?)")),
      find_content_(database_.prepare("SELECT id FROM content WHERE hash = ? AND states = ?")),
      insert_content_(
          database_.prepare("INSERT INTO content VALUES (NULL, ?, ?, 0, ?, ?, ?, ?, ?)")),
      count_content_(database_.prepare("UPDATE content SET machines = machines + 1 WHERE id = ?")),
      insert_state_(database_.prepare("INSERT OR REPLACE INTO state VALUES (?, ?, ?, ?)")),
      insert_finding_(database_.prepare("INSERT INTO finding VALUES (?, ?, ?)")),
      insert_hierarchy_(database_.prepare("INSERT INTO hierarchy VALUES (NULL, ?, ?, ?, ?, ?, ?)")),
      insert_limiter_(database_.prepare("INSERT INTO limiter VALUES (?, ?, ?)")),
      insert_machine_(database_.prepare("INSERT INTO machine VALUES (NULL, ?, ?, ?, ?)")),
      insert_request_(database_.prepare(
          "INSERT INTO request VALUES (?, nullif(?, ''), nullif(?, ''), ?, nullif(?, ''))")) {}

void FleetStore::add(const MachineReport &report, const std::string &machine,
                     const std::string &file) {
    const std::int64_t content = content_of(report, model_of(report));
    count_content_.run(content);
    insert_machine_.run(std::string_view(machine), std::string_view(file), content,
                        std::int64_t{report.is_partial()});
    const std::int64_t id = database_.last_id();
    for (const Request &request : report.requests)
        insert_request_.run(id, std::string_view(request.keyword), std::string_view(request.value),
                            std::string_view(request.status), std::string_view(request.reason));
}

void FleetStore::finish(const Devices &devices, std::size_t unreadable) {
    Statement insert = database_.prepare(
        "INSERT INTO device VALUES (?, nullif(?, ''), nullif(?, ''), nullif(?, ''))");
    for (std::size_t i = 0; i < devices.all().size(); ++i) {
        const Device &device = devices.all()[i];
        insert.run(static_cast<std::int64_t>(i), std::string_view(device.vendor),
                   std::string_view(device.device), std::string_view(device.name));
    }
    database_.prepare("INSERT INTO unreadable VALUES (?)")
        .run(static_cast<std::int64_t>(unreadable));
    database_.execute(DIFFERENCES);
    database_.execute(VIEWS);
}

std::int64_t FleetStore::model_of(const MachineReport &report) {
    const std::string places = places_text(report);
    find_model_.begin(hash_of(places), std::string_view(places));
    if (find_model_.step())
        return find_model_.number(0);
    insert_model_.run(hash_of(places), std::string_view(places));
    const std::int64_t model = database_.last_id();
    for (const FunctionState &function : report.functions)
        insert_place_.run(model, std::string_view(function.address),
                          static_cast<std::int64_t>(function.device));
    return model;
}

std::int64_t FleetStore::content_of(const MachineReport &report, std::int64_t model) {
    const std::string states = states_text(report, model);
    find_content_.begin(hash_of(states), std::string_view(states));
    if (find_content_.step())
        return find_content_.number(0);
    insert_content_.run(hash_of(states), model, std::string_view(states),
                        functions_with(report, &FunctionState::can_generate),
                        functions_with(report, &FunctionState::generation),
                        functions_with(report, &FunctionState::can_check),
                        functions_with(report, &FunctionState::checking));
    const std::int64_t content = database_.last_id();
    add_content(report, content);
    return content;
}

void FleetStore::add_content(const MachineReport &report, std::int64_t content) {
    for_each_value(report, [&](const std::string &address, const std::string &what,
                               const std::optional<std::string> &value) {
        if (value)
            insert_state_.run(content, std::string_view(address), std::string_view(what),
                              std::string_view(*value));
    });
    for (const Finding &finding : report.findings)
        insert_finding_.run(content, std::string_view(finding.code),
                            std::string_view(finding.severity));
    Functions functions;
    for (const FunctionState &function : report.functions)
        functions.emplace(function.address, &function);
    for (const Hierarchy &hierarchy : report.hierarchies) {
        const auto limiters = limiters_of(hierarchy, functions);
        insert_hierarchy_.run(content, hierarchy.path_max, hierarchy.possible, hierarchy.gain,
                              hierarchy.after, static_cast<std::int64_t>(limiters.size()));
        const std::int64_t id = database_.last_id();
        for (const auto &[device, places] : limiters)
            insert_limiter_.run(id, static_cast<std::int64_t>(device),
                                static_cast<std::int64_t>(places.size()));
    }
}

}  // namespace fleet
