// The host's log. A module looks at a handle each time it has something to say; a null handle means
// that nobody listens. The host may change the three variables at any time, each as one atomic
// word; handles stay valid for the life of the process.
#pragma once

#include <cstdarg>

#include "types.h"

// Severity codes, as log_output receives them.
constexpr int LOG_SEVERITY_ERROR = 2;
constexpr int LOG_SEVERITY_WARNING = 3;
constexpr int LOG_SEVERITY_INFO = 5;
constexpr int LOG_SEVERITY_DEBUG = 6;

// A log handle, owned by the host for the life of the process.
struct log_handle_t {
    // Takes one message. `verbosity` is the host's pci_verbosity as the module read it,
    // `message_verbosity` the message's own number (0, always wanted, to 4, seldom wanted): the
    // handle does the filtering. `format` is printf's; the text carries no line end. The result is
    // not used by modules. Called from any thread, also while the module holds its own locks or a
    // bridge's: it takes none of the latter.
    int (*log_output)(int severity, int verbosity, int message_verbosity, const char *format,
                      va_list args);
};

extern "C" {

// System log: errors, warnings and information. Null when there is none.
HOPLAR_EXPORT extern log_handle_t *pci_slog;

// Debug log. Null when debugging is off.
HOPLAR_EXPORT extern log_handle_t *pci_dbg;

// Highest message verbosity wanted, 0 and up.
HOPLAR_EXPORT extern int pci_verbosity;

}  // extern "C"
