// The host's own lines about what it is doing: shown with verbosity 1, the default, and above.
#pragma once

#include <string>

#include "host/server/log.h"
#include "platform/log.h"

namespace host {

inline void log_progress(const std::string &text) {
    if (pci_verbosity >= 1)
        log_info(text);
}

}  // namespace host
