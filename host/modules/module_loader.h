// Loads modules and starts them.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/modules/module_entry.h"
#include "platform/module.h"

namespace host {

// The versions that modules are told: of the server and of its PCI access library.
constexpr version_pair_t SERVER_VERSION{.major = 3, .minor = 0};
constexpr version_pair_t LIBRARY_VERSION{.major = 3, .minor = 0};

struct ModuleResult {
    std::string file;                       // as it was loaded; as it was named if it was not
    std::optional<version_pair_t> version;  // empty: not loaded, or of unknown version
    std::optional<pci_err_t> result;        // of its start; empty: it was not started, or threw

    bool runs() const { return result == PCI_OK; }
};

// Loads and starts one module after the other, on the calling thread. A module that cannot be
// loaded or refuses to start is logged as an error and does not stop the others. Modules stay
// loaded until the process ends.
std::vector<ModuleResult> load_modules(const std::vector<ModuleEntry> &specs);

// Returns "3.0".
std::string version_text(version_pair_t version);

}  // namespace host
