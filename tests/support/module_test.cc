#include "tests/support/module_test.h"

#include <algorithm>
#include <fstream>

#include "host/exports/payload_guard.h"
#include "module/startup.h"
#include "platform/log.h"
#include "platform/pci_access.h"
#include "tests/support/faults.h"
#include "tests/support/module_state.h"

namespace host::tests {
std::string line_of(const LogMessage &message) {
    const bool debug = message.severity == LOG_SEVERITY_DEBUG;
    std::string line = debug == message.debug_handle ? "" : "!";
    line += "??EW?ID"[message.severity] + std::to_string(message.verbosity) + ' ';
    line += message.text;
    for (std::size_t at = 0; (at = line.find("0x", at)) != std::string::npos; ++at) {
        const std::size_t end = line.find_first_not_of("0123456789abcdef", at + 2);
        if (std::min(end, line.size()) - at > 8)  // else a number of the feature file
            line.replace(at, end - at, "entry");
    }
    return line;
}

std::string expand(std::string text) {
    for (std::size_t open; (open = text.find('{')) != std::string::npos;) {
        const auto code = static_cast<pci_err_t>(std::stoul(text.substr(open + 1)));
        text.replace(open, text.find('}', open) - open + 1, pci_strerror(code));
    }
    return text;
}

ModuleTest::ModuleTest() {
    std::string name = std::filesystem::temp_directory_path() / "hoplar-test-XXXXXX";
    directory_ = ::mkdtemp(name.data());
    open_log({.verbosity = -1, .debug = true});
    observe_log([this](const LogMessage &message) { messages_.push_back(message); });
    reset();
}

ModuleTest::~ModuleTest() {
    reset();
    observe_log({});
    host::serve(nullptr);
    std::filesystem::remove_all(directory_);
}

TestMachine &ModuleTest::serve(const std::vector<FunctionSpec> &functions, ManagedBuses managed,
                               bool complete) {
    reset();
    machine.emplace(functions);
    host::serve(&*machine->machine, std::move(managed), complete);
    return *machine;
}

void ModuleTest::reset() {
    fail_calls(0);
    reset_module();
    messages_.clear();
}

std::string ModuleTest::file(std::string_view text, const std::string &name) {
    const std::filesystem::path path = directory_ / name;
    std::ofstream(path, std::ios::binary) << text;
    return path;
}

pci_err_t ModuleTest::start(const std::vector<std::string> &args) {
    std::vector<const char *> argv;
    for (const std::string &arg : args)
        argv.push_back(arg.c_str());
    const std::vector<const char *> before = argv;
    const mod_init_args_t record = {.server_version = {3, 0},
                                    .lib_version = {3, 0},
                                    .argc = static_cast<std::uint32_t>(argv.size()),
                                    .argv = argv.data()};
    const pci_err_t result = enable_features::start_module(&record);
    EXPECT_EQ(argv, before) << "the host's vector was written";
    keep_payloads_in_bounds();
    return result;
}

std::string ModuleTest::bare(std::string text) const {
    const std::string directory = directory_.string() + "/";
    for (std::size_t found; (found = text.find(directory)) != std::string::npos;)
        text.erase(found, directory.size());
    return text;
}

std::string ModuleTest::messages() {
    std::string lines;
    for (const LogMessage &message : std::exchange(messages_, {}))
        lines += bare(line_of(message)) + '\n';
    return lines;
}

std::string ModuleTest::messages_but_debug() {
    std::erase_if(messages_, [](const LogMessage &message) { return message.debug_handle; });
    return messages();
}

}  // namespace host::tests
