// The host's log. A module reads a handle each time it has a message; a null handle means that the
// message is not wanted. The host may change the three variables at any time, each as one atomic
// word; handles stay valid for the life of the process.
#pragma once

#include <cstdarg>

#include "types.h"

// Severity codes, as log_output receives them.
constexpr int LOG_SEVERITY_ERROR = 2;
constexpr int LOG_SEVERITY_WARNING = 3;
constexpr int LOG_SEVERITY_INFO = 5;
constexpr int LOG_SEVERITY_DEBUG = 6;

// A log handle; the host owns it for the life of the process.
struct log_handle_t {
    // Takes one message. severity: LOG_SEVERITY_*. verbosity: pci_verbosity, as the module read it.
    // message_verbosity: the message's level, 0 (always) to 4 (rarely). The handle shows no message
    // whose level is above `verbosity`, and may leave out mild severities. format: printf's; the
    // text carries no line end. Modules do not use the result. Called from any thread, also while
    // the module holds its own locks or a bridge's: it takes none of the latter.
    int (*log_output)(int severity, int verbosity, int message_verbosity, const char *format,
                      va_list args);
};

extern "C" {

// The system log: errors, warnings and information. Null when there is none.
HOPLAR_EXPORT extern log_handle_t *pci_slog;

// The debug log. Null when debugging is off.
HOPLAR_EXPORT extern log_handle_t *pci_dbg;

// The highest message_verbosity that is shown, 0 and up.
HOPLAR_EXPORT extern int pci_verbosity;

}  // extern "C"
