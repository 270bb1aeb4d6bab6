// One lock orders the lines of all threads. Each line leaves in one write, so that lines of several
// processes on one terminal stay whole too. A message may quote a file, so it goes through
// safe_text(): it stays one line, and no terminal obeys it.
#include "host/base/log.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <new>
#include <string_view>
#include <utility>

#include "host/base/address.h"
#include "host/base/descriptor_io.h"
#include "host/base/safe_text.h"
#include "platform/log.h"

namespace host {

namespace {

struct Log {
    std::mutex lock;
    LogRecord record;
    std::size_t kept_bytes = 0;
    std::size_t most_bytes = 0;
    bool to_journal = false;
    std::string part;  // in front of each text
    int mildest = LOG_SEVERITY_DEBUG;
    std::function<bool(std::string_view text)> is_no_loss;
    std::function<void(const LogMessage &)> observer;
};

// Never destroyed, because threads of modules may still write messages while the process ends.
Log &log() {
    static Log &the_log = *new Log;
    return the_log;
}

struct Level {
    int severity;
    const char *priority;  // for the journal
    const char *name;
    std::uint64_t LogCounts::*count;
};

constexpr std::array<Level, 4> LEVELS = {{
    {LOG_SEVERITY_ERROR, "<3>", "error", &LogCounts::error},
    {LOG_SEVERITY_WARNING, "<4>", "warning", &LogCounts::warning},
    {LOG_SEVERITY_INFO, "<6>", "info", &LogCounts::info},
    {LOG_SEVERITY_DEBUG, "<7>", "debug", &LogCounts::debug},
}};

// A severity between or beyond the known ones counts as the next milder known one.
const Level &level_of(int severity) {
    for (const Level &level : LEVELS)
        if (severity <= level.severity)
            return level;
    return LEVELS.back();
}

std::string formatted(const char *format, va_list args) {
    va_list again;
    va_copy(again, args);
    const int length = std::vsnprintf(nullptr, 0, format, again);
    va_end(again);
    if (length < 0)
        return format;
    std::string text(static_cast<std::size_t>(length), '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, args);
    return text;
}

// Returns true when standard error is the stream to systemd's journal that the environment names.
bool leads_to_journal() {
    const char *const named = std::getenv("JOURNAL_STREAM");
    struct stat status {};
    return named && fstat(STDERR_FILENO, &status) == 0 &&
           named == std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
}

// Text that cannot be written is lost: there is no other place to report it.
void write_all(std::string_view text) {
    static_cast<void>(write_whole(STDERR_FILENO, text));
}

// The caller holds the lock.
void count(int severity) {
    ++(log().record.counts.*level_of(severity).count);
}

// The caller holds the lock.
void show(int severity, const std::string &safe) {
    const Level &level = level_of(severity);
    std::string line = log().to_journal ? level.priority : "";
    line += level.name;
    line += ": ";
    line += safe;
    line += '\n';
    write_all(line);
}

// Shows a message without allocating memory: long text is cut, and unsafe bytes become "?".
// Not inlined, so that its text takes no stack of messages that have memory.
[[gnu::noinline]] void show_without_memory(int severity, const char *format, va_list args) {
    std::array<char, 512> text{};
    std::vsnprintf(text.data(), text.size(), format, args);
    const std::string_view line(text.data());
    for (std::size_t at = 0; at < line.size(); ++at)
        if (const std::size_t length = safe_length(line.substr(at)); length > 0)
            at += length - 1;
        else
            text[at] = '?';
    if (log().to_journal)
        write_all(level_of(severity).priority);
    write_all(level_of(severity).name);
    write_all(": ");
    write_all(log().part);
    write_all(line);
    write_all("\n");
}

// The caller holds the lock.
bool is_shown(int severity, int verbosity, int message_verbosity) {
    return message_verbosity <= verbosity && severity <= log().mildest;
}

// A feature that a module does not support in its version is no error of this run.
int severity_here(int severity, std::string_view text) {
    const bool is_lack =
        severity <= LOG_SEVERITY_ERROR && text.ends_with(" initialization failed, Not supported");
    const bool is_no_loss =
        severity == LOG_SEVERITY_WARNING && log().is_no_loss && log().is_no_loss(text);
    return is_lack || is_no_loss ? LOG_SEVERITY_INFO : severity;
}

std::size_t bytes_of(const KeptMessage &message) {
    return sizeof message + message.text.capacity();
}

// The caller holds the lock.
void drop_oldest() {
    std::deque<KeptMessage> &kept = log().record.kept;
    while (log().kept_bytes > log().most_bytes) {
        log().kept_bytes -= bytes_of(kept.front());
        kept.pop_front();
    }
}

// The caller holds the lock.
void keep(KeptMessage message) {
    log().record.kept.push_back(std::move(message));
    log().kept_bytes += bytes_of(log().record.kept.back());
    drop_oldest();
}

// The caller holds the lock. The message is shown first, so that what lacks memory is only its
// place among those that are kept.
void show_and_keep(KeptMessage message) {
    if (message.shown)
        show(message.severity, message.text);
    try {
        if (log().most_bytes > 0)
            keep(std::move(message));
    } catch (const std::bad_alloc &) {
    }
}

// The caller holds the lock. `severity` becomes that under which the message counts.
void deliver(const LogMessage &message, int verbosity, int &severity) {
    severity = severity_here(message.severity, message.text);
    if (log().observer)
        log().observer(message);
    const bool shown = is_shown(severity, verbosity, message.verbosity);
    if (shown || log().most_bytes > 0)
        show_and_keep({severity, message.verbosity, shown,
                       log().part + safe_text(with_lspci_addresses(message.text))});
}

// The caller holds the lock. Returns true when severity_here() may look at the text.
bool depends_on_text(int severity) {
    return severity <= LOG_SEVERITY_ERROR || (severity == LOG_SEVERITY_WARNING && log().is_no_loss);
}

// Modules call this through a C interface, which no exception may cross.
int take(bool debug_handle, int severity, int verbosity, int message_verbosity, const char *format,
         va_list args) {
    Log &the_log = log();
    const std::scoped_lock guard(the_log.lock);
    if (is_shown(severity, verbosity, message_verbosity) || the_log.observer ||
        the_log.most_bytes > 0 || depends_on_text(severity)) {
        va_list again;
        va_copy(again, args);
        try {
            deliver({severity, message_verbosity, debug_handle, format, formatted(format, args)},
                    verbosity, severity);
        } catch (const std::bad_alloc &) {
            if (is_shown(severity, verbosity, message_verbosity))
                show_without_memory(severity, format, again);
        }
        va_end(again);
    }
    count(severity);
    return 0;
}

int take_system(int severity, int verbosity, int message_verbosity, const char *format,
                va_list args) {
    return take(false, severity, verbosity, message_verbosity, format, args);
}

int take_debug(int severity, int verbosity, int message_verbosity, const char *format,
               va_list args) {
    return take(true, severity, verbosity, message_verbosity, format, args);
}

log_handle_t system_handle = {.log_output = take_system};
log_handle_t debug_handle = {.log_output = take_debug};

void show_own(int severity, const std::string &text, int verbosity = 0) {
    const std::scoped_lock guard(log().lock);
    count(severity);
    show_and_keep({severity, verbosity, is_shown(severity, pci_verbosity, verbosity),
                   log().part + safe_text(text)});
}

}  // namespace

LogLevel log_level(bool quiet, int louder, bool debug) {
    const int usual = louder > 0 || debug ? LOG_SEVERITY_DEBUG : LOG_SEVERITY_WARNING;
    return {.verbosity = std::max(louder, 1),
            .mildest = quiet ? LOG_SEVERITY_ERROR : usual,
            .debug = debug};
}

void open_log(const LogLevel &level) {
    log().to_journal = leads_to_journal();
    log().mildest = level.mildest;
    pci_verbosity = level.verbosity;
    pci_slog = &system_handle;
    pci_dbg = level.debug ? &debug_handle : nullptr;
}

void log_for(const std::string &part) {
    const std::scoped_lock guard(log().lock);
    log().part = part + ": ";
    log().record = {};
    log().kept_bytes = 0;
}

void demote_warnings(std::function<bool(std::string_view text)> is_no_loss) {
    const std::scoped_lock guard(log().lock);
    log().is_no_loss = std::move(is_no_loss);
}

void observe_log(std::function<void(const LogMessage &)> observer) {
    const std::scoped_lock guard(log().lock);
    log().observer = std::move(observer);
}

LogCounts log_counts() {
    const std::scoped_lock guard(log().lock);
    return log().record.counts;
}

const char *severity_name(int severity) {
    return level_of(severity).name;
}

void keep_messages(std::size_t most_bytes) {
    const std::scoped_lock guard(log().lock);
    log().most_bytes = most_bytes;
    drop_oldest();
}

LogRecord log_record() {
    const std::scoped_lock guard(log().lock);
    return log().record;
}

void log_error(const std::string &text) {
    show_own(LOG_SEVERITY_ERROR, text);
}

void log_warning(const std::string &text) {
    show_own(LOG_SEVERITY_WARNING, text);
}

void log_info(const std::string &text) {
    show_own(LOG_SEVERITY_INFO, text, 1);
}

}  // namespace host

log_handle_t *pci_slog = nullptr;
log_handle_t *pci_dbg = nullptr;
int pci_verbosity = 1;
