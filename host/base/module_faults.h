// Catches what a module's code does to its host beyond returning a result: exceptions and exit().
#pragma once

#include <string>

namespace host {

// Logs "module FILE: PLACE has thrown an exception: TEXT". Call in the handler of the exception.
void log_exception(const std::string &file, const std::string &place);

// Returns true when log_exception() has been called.
bool any_exception();

// Reports a module that calls exit(), by name if it is being started, and ends the process with
// `status` whatever status the module gave, because the report and the output will not be written.
// One at a time. _exit(), quick_exit() and signals cannot be noticed.
class ExitWatch {
public:
    explicit ExitWatch(int status);
    ~ExitWatch();
    ExitWatch(const ExitWatch &) = delete;
    ExitWatch &operator=(const ExitWatch &) = delete;
};

// Names the module that is being started, for ExitWatch. One at a time.
class ModuleStart {
public:
    explicit ModuleStart(const std::string &file);
    ~ModuleStart();
    ModuleStart(const ModuleStart &) = delete;
    ModuleStart &operator=(const ModuleStart &) = delete;
};

}  // namespace host
