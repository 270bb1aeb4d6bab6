#include <iostream>
#include <memory>

#include "host/base/input.h"
#include "host/base/log.h"
#include "host/cli/program.h"
#include "host/cli/run.h"
#include "host/cli/wanted_files.h"
#include "host/exports/serve.h"
#include "host/machine/open_machine.h"
#include "host/modules/host_config.h"
#include "host/space/machine_source.h"
#include "tools/check/numbers.h"
#include "tools/check/options.h"
#include "tools/check/view.h"

namespace check {
namespace {

namespace fs = std::filesystem;
namespace module = enable_features;

constexpr int EXIT_CLEAN = 0;
constexpr int EXIT_REMARKS = 1;

// A dump's machine, as long as this object lives.
class CheckedMachine {
public:
    explicit CheckedMachine(const Options &options)
        : source_(host::open_source({.dump = options.dump, .domain = options.domain}, std::cin)),
          machine_(host::open_machine(source_.space())), serving_(*machine_),
          report_(host::begin_report(*machine_, options.domain)) {}

    View view() const { return {*machine_, report_}; }

private:
    const host::MachineSource source_;
    const std::unique_ptr<host::Machine> machine_;
    const host::Serving serving_;
    const host::Report report_;
};

// Throws host::InputError for what the module would read nothing of, or would refuse.
std::string read_file(const std::string &file) {
    std::error_code ignored;
    if (fs::exists(file, ignored) && !fs::is_directory(file, ignored) &&
        !fs::is_regular_file(file, ignored))
        throw host::InputError(file + ": is no regular file, the module would read nothing of it");
    return host::read_text_file(file);
}

struct Requests {
    std::vector<MpsRequest> mps;
    std::vector<EcrcRequest> ecrc;
};

Requests read_requests(const std::string &text, const View *view, Remarks &remarks) {
    Requests requests;
    for (const FeatureLine &line : read_lines(text, remarks)) {
        if (line.row == module::ROW_FB2B || line.row == module::ROW_ASPM)
            remarks.note(line.number, "the keyword has no effect in this version");
        else if (is_lspci_form(line.value, view != nullptr ? &view->machine : nullptr, line.number,
                               remarks))
            continue;
        else if (line.row == module::ROW_MPS) {
            if (auto request = read_mps(line, remarks))
                requests.mps.push_back(std::move(*request));
        } else if (auto request = read_ecrc(line, remarks))
            requests.ecrc.push_back(std::move(*request));
    }
    return requests;
}

// Checks one file. `view` may be null. Returns true when there is an error or a warning.
bool check_file(const std::string &file, const View *view, bool describe) {
    Remarks remarks;
    const Requests requests = read_requests(read_file(file), view, remarks);
    if (describe) {
        for (const MpsRequest &request : requests.mps)
            remarks.note(request.line, "asks for: " + text_of(request));
        for (const EcrcRequest &request : requests.ecrc)
            remarks.note(request.line, "asks for: " + text_of(request));
    }
    check_overridden(requests.mps, remarks);
    check_overridden(requests.ecrc, remarks);
    if (view != nullptr) {
        check_on_machine(requests.mps, *view, remarks);
        check_on_machine(requests.ecrc, *view, describe, remarks);
    }
    remarks.write(file, std::cout);
    return remarks.any();
}

// Returns the files of the options, then those that the configuration names.
std::vector<std::string> wanted_files(const Options &options) {
    constexpr std::string_view MODULE = "hoplar-enable_features.so";
    std::vector<std::string> files = options.files;
    if (!options.config)
        return files;
    const host::HostConfig config = host::read_host_config(*options.config);
    for (const std::string &warning : config.warnings)
        host::log_warning(warning);
    for (const host::ModuleEntry &entry : config.modules)
        if (fs::path(entry.file).filename() == MODULE)
            for (const fs::path &file : host::sort_arguments(entry).files)
                files.push_back(file.string());
    if (files.empty())
        throw host::InputError(options.config->string() + ": names no feature file");
    return files;
}

// All files are checked, also behind one that cannot be read.
int run(const Options &options) {
    host::open_log(host::log_level(false, 0, false));
    int status = EXIT_CLEAN;
    std::optional<CheckedMachine> machine;
    if (options.dump)
        machine.emplace(options);
    std::optional<View> view;
    if (machine)
        view.emplace(machine->view());
    for (const std::string &file : wanted_files(options)) {
        try {
            if (check_file(file, view ? &*view : nullptr, options.describe))
                status = std::max(status, EXIT_REMARKS);
        } catch (const host::InputError &error) {
            status = host::refuse(error);
        }
    }
    if (!std::cout.flush())
        throw host::InputError("standard output: cannot be written");
    return status;
}

}  // namespace
}  // namespace check

int main(int argc, char **argv) {
    return host::run_program([&]() -> std::optional<int> {
        const auto options = check::parse_options(argc, argv, std::cout);
        return options ? std::optional(check::run(*options)) : std::nullopt;
    });
}
