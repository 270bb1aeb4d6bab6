#include "host/cli/start_up.h"

#include "host/exports/payload_guard.h"
#include "host/exports/payload_mismatches.h"

namespace host {

std::vector<ModuleResult> start_up(const std::vector<ModuleEntry> &modules) {
    std::vector<ModuleResult> results = load_modules(modules);
    keep_payloads_in_bounds();
    warn_about_payloads_found();
    return results;
}

}  // namespace host
