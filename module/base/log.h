// Each message site reads its handle once. Without a handle nothing is done: the message's
// arguments are not computed either. A message never changes what the code does next.
#pragma once

#include "platform/bdf.h"
#include "platform/log.h"

namespace enable_features {

// Each hands one message to `handle` with the severity code of its level. They filter nothing: the
// handle does, by pci_verbosity and by `verbosity`, the message's own number from 0 to 4.
[[gnu::format(printf, 3, 4)]] void __pci_slog_error(log_handle_t *handle, int verbosity,
                                                    const char *format, ...);
[[gnu::format(printf, 3, 4)]] void __pci_slog_warn(log_handle_t *handle, int verbosity,
                                                   const char *format, ...);
[[gnu::format(printf, 3, 4)]] void __pci_slog_info(log_handle_t *handle, int verbosity,
                                                   const char *format, ...);
[[gnu::format(printf, 3, 4)]] void __pci_slog_debug(log_handle_t *handle, int verbosity,
                                                    const char *format, ...);

}  // namespace enable_features

// The message sites are macros, because a function's arguments would be computed even without a
// handle.
#define LOG_TO(handle_variable, level_function, ...)                                               \
    do {                                                                                           \
        if (log_handle_t *log_handle = __atomic_load_n(&(handle_variable), __ATOMIC_ACQUIRE))      \
            ::enable_features::level_function(log_handle, __VA_ARGS__);                            \
    } while (false)

#define LOG_ERROR(...) LOG_TO(pci_slog, __pci_slog_error, __VA_ARGS__)
#define LOG_WARNING(...) LOG_TO(pci_slog, __pci_slog_warn, __VA_ARGS__)
#define LOG_INFO(...) LOG_TO(pci_slog, __pci_slog_info, __VA_ARGS__)
#define LOG_DEBUG(...) LOG_TO(pci_dbg, __pci_slog_debug, __VA_ARGS__)

// Expands to the three arguments of "B%u:D%u:F%u".
#define BDF_ARGS(bdf) ::pci::bus_of(bdf), ::pci::device_of(bdf), ::pci::function_of(bdf)
