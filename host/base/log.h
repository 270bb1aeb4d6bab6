// The log behind pci_slog and pci_dbg: lines on standard error, counted by severity.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace host {

struct LogMessage {
    int severity;
    int verbosity;      // the message's own number
    bool debug_handle;  // came through pci_dbg, else pci_slog
    const char *format;
    std::string text;
};

struct LogCounts {
    std::uint64_t error = 0, warning = 0, info = 0, debug = 0;  // messages, by severity
};

// Opens pci_slog, and pci_dbg when `debug` is set; messages above `verbosity` are not shown. Where
// standard error leads to systemd's journal, each line begins with its priority.
void open_log(int verbosity, bool debug);

// Sends every message that reaches a handle, before filtering, to `observer` too; an empty function
// removes it. The tests use this. The observer is called under the log's own lock.
void observe_log(std::function<void(const LogMessage &)> observer);

// Returns how many messages have reached a handle or came from the host itself so far, shown or
// not.
LogCounts log_counts();

// Log lines of the host itself, in the same form and the same counts. log_info() needs verbosity 1,
// the default, or more.
void log_error(const std::string &text);
void log_warning(const std::string &text);
void log_info(const std::string &text);

}  // namespace host
