// The fixture of every test of the module: a machine that the host's exports answer for, the log as
// the host receives it, and a module as it was when it was loaded.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/base/log.h"
#include "host/exports/serve.h"
#include "module/base/feature.h"
#include "platform/bdf.h"
#include "tests/support/test_machine.h"

namespace host::tests {

namespace module = enable_features;

// A message as tests write it: the severity's letter (E, W, I, D), the verbosity number, the text;
// "!" in front when it came through the wrong handle. "entry" stands for what "%p" prints.
std::string line_of(const LogMessage &message);

// "{48}" stands for the text of error code 48.
std::string expand(std::string text);

// Returns a function's name in messages.
inline std::string printed(bdf_t bdf) {
    return 'B' + std::to_string(pci::bus_of(bdf)) + ":D" + std::to_string(pci::device_of(bdf)) +
           ":F" + std::to_string(pci::function_of(bdf));
}

// A function as the feature file names it: "1.0.0", in ARI form "2.17".
inline std::string feature_file_name(bdf_t bdf) {
    const std::string device = std::to_string(pci::device_of(bdf)) + '.';
    return std::to_string(pci::bus_of(bdf)) + '.' + (pci::is_ari(bdf) ? "" : device) +
           std::to_string(pci::function_of(bdf));
}

inline std::string replaced(std::string text, const std::string &mark, const std::string &value) {
    for (std::size_t at = 0; (at = text.find(mark, at)) != std::string::npos; at += value.size())
        text.replace(at, mark.size(), value);
    return text;
}

// True while any thread holds it.
inline bool is_locked(pthread_mutex_t &mutex) {
    return pthread_mutex_trylock(&mutex) != 0 || pthread_mutex_unlock(&mutex) != 0;
}

class ModuleTest : public ::testing::Test {
protected:
    ModuleTest();
    ~ModuleTest() override;

    // Serves this machine from now on, with a module that has never run.
    TestMachine &serve(const std::vector<FunctionSpec> &functions,
                       ManagedBuses managed = ManagedBuses(256, true), bool complete = false);

    // Brings the module to its state after loading, without a message; what it kept for the life of
    // the process is released.
    void reset();

    // Writes a file of the test's own and returns its path.
    std::string file(std::string_view text, const std::string &name = "features.cfg");

    // Starts the module, version 3.0 of everything, with arguments, or with a feature file.
    pci_err_t start(const std::vector<std::string> &args);
    pci_err_t start_with(std::string_view features) {
        return start({"--config=" + file(features)});
    }

    // Returns what has been logged since the last call: lines, each with its line end. Files of the
    // test are named without directory.
    std::string messages();
    std::string messages_but_debug();

    // Returns a text without the directory of the test's files.
    std::string bare(std::string text) const;

    std::optional<TestMachine> machine;

private:
    std::filesystem::path directory_;
    std::vector<LogMessage> messages_;
};

}  // namespace host::tests
