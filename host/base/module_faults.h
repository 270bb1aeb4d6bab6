// What a module's code does to its host beyond what it returns.
#pragma once

#include <string>

namespace host {

// Where an exception of a module's code has been caught: logs "module FILE: PLACE has thrown an
// exception: TEXT".
void log_exception(const std::string &file, const std::string &place);

// Whether that has happened.
bool any_exception();

// While this lives, a module that calls exit() is reported, by name if it is being started, and the
// process ends with `status` whatever the module wants: what is still to be written will not be.
// One at a time. _exit(), quick_exit() and signals cannot be noticed.
class ExitWatch {
public:
    explicit ExitWatch(int status);
    ~ExitWatch();
    ExitWatch(const ExitWatch &) = delete;
    ExitWatch &operator=(const ExitWatch &) = delete;
};

// While this lives, that module is being started. Nothing else may start one meanwhile.
class ModuleStart {
public:
    explicit ModuleStart(const std::string &file);
    ~ModuleStart();
    ModuleStart(const ModuleStart &) = delete;
    ModuleStart &operator=(const ModuleStart &) = delete;
};

}  // namespace host
