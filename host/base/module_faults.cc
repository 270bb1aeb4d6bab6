#include "host/base/module_faults.h"

#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <exception>

#include "host/base/log.h"

namespace host {
namespace {

std::atomic<bool> has_thrown = false;
std::atomic<int> status_wanted = 0;  // 0: no ExitWatch
std::atomic<const std::string *> file_that_starts = nullptr;

std::string exception_text() {
    try {
        throw;
    } catch (const std::exception &error) {
        return std::string(": ") + error.what();
    } catch (...) {
        return "";
    }
}

void end(int status, void *) {
    const int wanted = status_wanted;
    if (wanted == 0)
        return;
    const std::string *const file = file_that_starts;
    log_error((file ? "module " + *file : "a module") + ": has ended the server with exit(" +
              std::to_string(status) + "): there is no report, and no output is written");
    _exit(wanted);
}

}  // namespace

void log_exception(const std::string &file, const std::string &place) {
    has_thrown = true;
    log_error("module " + file + ": " + place + " has thrown an exception" + exception_text());
}

bool any_exception() {
    return has_thrown;
}

ExitWatch::ExitWatch(int status) {
    static const int registered = on_exit(end, nullptr);
    status_wanted = registered == 0 ? status : 0;
}

ExitWatch::~ExitWatch() {
    status_wanted = 0;
}

ModuleStart::ModuleStart(const std::string &file) {
    file_that_starts = &file;
}

ModuleStart::~ModuleStart() {
    file_that_starts = nullptr;
}

}  // namespace host
