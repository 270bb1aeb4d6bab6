#include "tools/fleet/sections.h"

namespace fleet {

// A model "frees" the hierarchies that it alone limits: they could carry more without it. Of a
// single row for all machines of a state, each sum takes their number.
const char *const VIEWS = R"(
CREATE VIEW limit_of_state AS
    SELECT l.device AS id, h.path_max AS supported, h.content, sum(l.devices) AS devices,
        count(*) AS hierarchies, count(*) FILTER (WHERE h.models = 1) AS freed,
        max(h.possible) FILTER (WHERE h.models = 1) AS possible,
        sum(h.gain) FILTER (WHERE h.models = 1) AS gains
    FROM limiter l JOIN hierarchy h ON h.id = l.hierarchy WHERE h.possible IS NOT NULL
    GROUP BY l.device, h.path_max, h.content;
CREATE VIEW limits_of_devices AS
    SELECT l.id, l.supported, sum(l.devices * c.machines) AS devices, sum(c.machines) AS machines,
        sum(l.hierarchies * c.machines) AS hierarchies, sum(l.freed * c.machines) AS freed,
        max(l.possible) AS possible,
        round(sum(l.gains * c.machines) / sum(l.freed * c.machines), 2) AS gain
    FROM limit_of_state l JOIN content c ON c.id = l.content
    GROUP BY l.id, l.supported;
CREATE VIEW limits AS
    SELECT d.vendor, d.device, d.name, l.supported, l.devices, l.machines, l.hierarchies, l.freed,
        l.possible, l.gain
    FROM limits_of_devices l JOIN device d ON d.id = l.id
    ORDER BY 8 DESC, 5 DESC, 1, 2, 4;

CREATE VIEW differences AS
    SELECT m.name AS machine, m.file, c.model, u.alike, u.machines AS usual_machines, x.what, x.here,
        x.usual, x.functions, x.address, d.vendor, d.device
    FROM machine m JOIN difference x ON x.content = m.content JOIN content c ON c.id = m.content
    JOIN usual u ON u.model = c.model JOIN place p ON p.model = c.model AND p.address = x.address
    JOIN device d ON d.id = p.device
    ORDER BY m.name, m.id, x.what, x.address;

CREATE VIEW findings AS
    SELECT code, severity, sum(machines) AS machines, sum(machines * found) AS findings FROM
        (SELECT content, code, severity, count(*) AS found FROM finding
         GROUP BY content, code, severity)
    JOIN content c ON c.id = content
    GROUP BY code, severity
    ORDER BY severity = 'error' DESC, severity = 'warning' DESC, machines DESC, code;

CREATE VIEW request_kind AS
    SELECT keyword, value, status, count(DISTINCT machine) AS machines, count(*) AS requests,
        min(rowid) AS example FROM request GROUP BY keyword, value, status;
CREATE VIEW requests AS
    SELECT r.keyword, r.value, r.status, r.machines, r.requests, m.name AS machine, e.reason
    FROM request_kind r JOIN request e ON e.rowid = r.example JOIN machine m ON m.id = e.machine
    ORDER BY r.machines DESC, r.keyword, r.value, r.status;

CREATE VIEW hierarchies_of_state AS
    SELECT content, count(*) AS all_of_it, count(*) FILTER (WHERE after < path_max) AS below,
        count(*) FILTER (WHERE possible IS NOT NULL) AS limited
    FROM hierarchy GROUP BY content;
CREATE VIEW totals AS
    SELECT (SELECT count(*) FROM machine) AS machines, (SELECT count(*) FROM model) AS models,
        (SELECT reports FROM unreadable) AS unreadable,
        (SELECT count(*) FROM machine WHERE partial) AS partial,
        ifnull(sum(all_of_it * machines), 0) AS hierarchies,
        ifnull(sum(machines) FILTER (WHERE below > 0), 0) AS below_machines,
        ifnull(sum(below * machines), 0) AS below_hierarchies,
        ifnull(sum(machines) FILTER (WHERE limited > 0), 0) AS limited_machines,
        ifnull(sum(limited * machines), 0) AS limited_hierarchies,
        (SELECT count(*) FROM machine WHERE content IN (SELECT content FROM difference))
            AS different_machines,
        (SELECT ifnull(sum(generation_capable * machines), 0) FROM content) AS generation_capable,
        (SELECT ifnull(sum(generation_on * machines), 0) FROM content) AS generation_on,
        (SELECT ifnull(sum(checking_capable * machines), 0) FROM content) AS checking_capable,
        (SELECT ifnull(sum(checking_on * machines), 0) FROM content) AS checking_on
    FROM hierarchies_of_state h JOIN content c ON c.id = h.content;
)";

const std::array<Passage, 6> PASSAGES = {{
    {nullptr, R"(
    WITH t AS (SELECT * FROM totals)
    SELECT 'all, of ' || models || iif(models = 1, ' model', ' models') AS "what is read",
        hierarchies, machines FROM t
    UNION ALL SELECT 'carry less than all of it supports', below_hierarchies, below_machines FROM t
    UNION ALL SELECT 'could carry more without the devices below', limited_hierarchies,
        limited_machines FROM t
    UNION ALL SELECT 'differ from others of their model', NULL, different_machines FROM t
    UNION ALL SELECT 'are shown in part by their report', NULL, partial FROM t WHERE partial > 0
    UNION ALL SELECT 'could not be read', NULL, unreadable FROM t WHERE unreadable > 0)"},
    {"Devices that limit hierarchies", R"(
    SELECT ifnull(vendor || ':' || device, 'no answer') AS device, supported AS size, devices,
        machines, freed AS frees, possible AS "to", iif(gain IS NULL, NULL,
        format('+%.1f %%', gain)) AS gain,
        replace(name, format(' [%s:%s]', vendor, device), '') AS name FROM limits WHERE freed > 0)"},
    {nullptr, R"(
    SELECT format('%d more device models limit hierarchies only together with others: see'
        || ' --form json or csv.', count(*)) FROM limits WHERE freed = 0 HAVING count(*) > 0)"},
    {"Machines that differ from others of their model", R"(
    SELECT format('%s%s of %d: %s %s, usually %s: %s (%s)%s', min(machine),
        iif(count(*) > 1, format(' and %d more', count(*) - 1), ''), alike, what,
        ifnull(here, 'none'), ifnull(usual, 'none'), address,
        ifnull(vendor || ':' || device, 'no answer'),
        iif(functions > 1, format(' and %d more', functions - 1), ''))
    FROM differences GROUP BY model, what, here, usual, functions, address, vendor,
        device
    ORDER BY count(*) DESC, min(machine))"},
    {"Findings", "SELECT code AS finding, severity, machines, findings AS count FROM findings"},
    {"Requests that were not reached", R"(
    SELECT format('%s %s, %d %s%s, on %s: %s', replace(status, '_', ' '),
        iif(requests = 1, 'once', requests || ' times'), machines,
        iif(machines = 1, 'machine', 'machines'),
        ifnull(': ' || keyword || '=' || ifnull(value, ''), ''), machine,
        ifnull(reason, 'no reason')) FROM requests)"},
}};

}  // namespace fleet
