// The log behind pci_slog and pci_dbg: lines on standard error, counted by severity.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <string_view>

#include "platform/log.h"

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

struct KeptMessage {
    int severity;      // LOG_SEVERITY_*
    int verbosity;     // 0 to 4
    bool shown;        // on standard error
    std::string text;  // without the prefix there
};

struct LogRecord {
    LogCounts counts;
    std::deque<KeptMessage> kept;  // in the order in which they came

    // Returns how many of those that are counted are not kept.
    std::uint64_t left_out() const {
        return counts.error + counts.warning + counts.info + counts.debug - kept.size();
    }
};

// Returns "error", "warning", "info" or "debug".
const char *severity_name(int severity);

// Chooses the messages that are shown: those up to a verbosity that are severe enough, and with
// `debug` those that come through pci_dbg.
struct LogLevel {
    int verbosity = 1;                 // the platform's 0 to 4; -1: none
    int mildest = LOG_SEVERITY_DEBUG;  // LOG_SEVERITY_*
    bool debug = false;
};

// The level of command lines: errors and warnings; quiet: errors; with "-v", and with each more,
// and with "-d" all severities.
LogLevel log_level(bool quiet, int louder, bool debug);

// Opens pci_slog, and pci_dbg when `debug` is set. Where standard error leads to systemd's journal,
// lines have a priority in front. Addresses in modules' messages have lspci's form behind them.
// That a feature is not supported in a module's version is what the module is, and no error of a
// run.
void open_log(const LogLevel &level);

// Puts `part` and ": " in front of each text from now on, so that the lines of several processes
// can be told apart. The counts begin anew, and messages that are kept are dropped.
void log_for(const std::string &part);

// Lets warnings of modules for which `is_no_loss` returns true count as mere information; an empty
// function lets none. It is called under the log's own lock.
void demote_warnings(std::function<bool(std::string_view text)> is_no_loss);

// Sends every message that reaches a handle, before filtering, to `observer` too; an empty function
// removes it. The tests use this. The observer is called under the log's own lock.
void observe_log(std::function<void(const LogMessage &)> observer);

// Returns how many messages have reached a handle or came from the host itself so far, shown or
// not.
LogCounts log_counts();

// Keeps the messages that come from now on, shown or not, for log_record(): the newest that take up
// to `most_bytes` of memory. 0, as at first, keeps none. A message for which there is no memory is
// left out.
void keep_messages(std::size_t most_bytes);

// Returns the counts and a copy of the messages that are kept, both of the same moment.
LogRecord log_record();

// Log lines of the host itself, in the same form and the same counts. log_info() needs verbosity 1,
// the default, or more.
void log_error(const std::string &text);
void log_warning(const std::string &text);
void log_info(const std::string &text);

}  // namespace host
