// The log handles pci_slog and pci_dbg: lines on standard error, counted by severity.
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
// standard error leads to systemd's journal, lines have a priority in front.
void open_log(int verbosity, bool debug);

// Every message that reaches a handle, before filtering, also goes to `observer` (tests); empty:
// none. Called under the log's own lock.
void observe_log(std::function<void(const LogMessage &)> observer);

// What has reached a handle or came from the host itself so far, shown or not.
LogCounts log_counts();

// The host's own lines, in the same form and the same counts. What it is doing is shown with
// verbosity 1, the default, and above.
void log_error(const std::string &text);
void log_warning(const std::string &text);
void log_info(const std::string &text);

}  // namespace host
