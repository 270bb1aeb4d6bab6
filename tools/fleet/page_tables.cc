#include "tools/fleet/page_tables.h"

namespace fleet {

// The numbers of models, states, devices and requests are those by which other tables name them;
// a machine is named by its place among the machines.
const std::array<PageTable, 13> PAGE_TABLES = {{
    {"totals", "SELECT * FROM totals"},
    {"sizes", R"(
    SELECT size, sum(is_set * machines) AS is_set, sum(supported * machines) AS supported FROM
        (SELECT content, after AS size, 1 AS is_set, 0 AS supported FROM hierarchy
         UNION ALL SELECT content, path_max, 0, 1 FROM hierarchy)
    JOIN content c ON c.id = content WHERE size IS NOT NULL GROUP BY size ORDER BY size)"},
    {"devices", R"(
    SELECT id, ifnull(vendor || ':' || device, 'no answer') AS code,
        trim(replace(name, format('[%s:%s]', vendor, device), '')) AS name FROM device)"},
    {"limits", R"(
    SELECT id AS device, supported, devices, hierarchies, freed, possible, gain
    FROM limits_of_devices ORDER BY devices DESC, supported)"},
    {"models", R"(
    SELECT m.id, count(p.model) AS functions FROM model m LEFT JOIN place p ON p.model = m.id
    GROUP BY m.id)"},
    {"model_devices", R"(
    SELECT model, device, count(*) AS functions FROM place GROUP BY model, device)"},
    {"states", R"(
    SELECT c.id, c.model, c.id = u.content AS is_usual, ifnull(h.all_of_it, 0) AS hierarchies,
        ifnull(h.below, 0) AS below, ifnull(h.limited, 0) AS limited, c.generation_capable,
        c.generation_on, c.checking_capable, c.checking_on
    FROM content c JOIN usual u ON u.model = c.model
    LEFT JOIN hierarchies_of_state h ON h.content = c.id)"},
    {"state_limits", "SELECT content AS state, id AS device, supported FROM limit_of_state"},
    {"state_findings", R"(
    SELECT content AS state, code, severity, count(*) AS findings FROM finding
    GROUP BY content, code, severity)"},
    {"state_differences", R"(
    SELECT x.content AS state, x.what, x.here, x.usual, x.functions, x.address, p.device
    FROM difference x JOIN content c ON c.id = x.content
    JOIN place p ON p.model = c.model AND p.address = x.address)"},
    {"machines", "SELECT name, file, content AS state, partial FROM machine ORDER BY id"},
    {"requests", R"(
    SELECT r.example AS id, r.keyword, r.value, r.status, r.requests, e.reason
    FROM request_kind r JOIN request e ON e.rowid = r.example)"},
    {"machine_requests", R"(
    SELECT DISTINCT machine - 1 AS machine,
        min(rowid) OVER (PARTITION BY keyword, value, status) AS request FROM request)"},
}};

}  // namespace fleet
