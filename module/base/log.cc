#include "module/base/log.h"

namespace enable_features {

namespace {

[[gnu::format(printf, 4, 0)]] void put(log_handle_t *handle, int severity, int verbosity,
                                       const char *format, va_list args) {
    handle->log_output(severity, __atomic_load_n(&pci_verbosity, __ATOMIC_RELAXED), verbosity,
                       format, args);
}

}  // namespace

void __pci_slog_error(log_handle_t *handle, int verbosity, const char *format, ...) {
    va_list args;
    va_start(args, format);
    put(handle, LOG_SEVERITY_ERROR, verbosity, format, args);
    va_end(args);
}

void __pci_slog_warn(log_handle_t *handle, int verbosity, const char *format, ...) {
    va_list args;
    va_start(args, format);
    put(handle, LOG_SEVERITY_WARNING, verbosity, format, args);
    va_end(args);
}

void __pci_slog_info(log_handle_t *handle, int verbosity, const char *format, ...) {
    va_list args;
    va_start(args, format);
    put(handle, LOG_SEVERITY_INFO, verbosity, format, args);
    va_end(args);
}

void __pci_slog_debug(log_handle_t *handle, int verbosity, const char *format, ...) {
    va_list args;
    va_start(args, format);
    put(handle, LOG_SEVERITY_DEBUG, verbosity, format, args);
    va_end(args);
}

}  // namespace enable_features
