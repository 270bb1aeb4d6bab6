#include "tools/check/check.h"

#include <algorithm>
#include <memory>
#include <ostream>

#include "host/base/input.h"
#include "host/base/log.h"
#include "host/cli/run.h"
#include "host/exports/serve.h"
#include "host/machine/open_machine.h"
#include "host/requests/view.h"
#include "host/space/machine_source.h"
#include "tools/check/module_arguments.h"
#include "tools/check/mps_on_machine.h"

namespace check {
namespace {

// The machine of a dump, or a snapshot of this one, as long as this object lives.
class CheckedMachine {
public:
    CheckedMachine(const host::SourceOptions &options, std::istream &in)
        : source_(host::open_source(options, in)), machine_(host::open_machine(source_.space())),
          serving_(*machine_), report_(host::begin_report(*machine_, source_.domain)) {}

    host::MachineView view() const { return {*machine_, report_}; }

private:
    const host::MachineSource source_;
    const std::unique_ptr<host::Machine> machine_;
    const host::Serving serving_;
    const host::Report report_;
};

struct Requests {
    std::vector<host::MpsRequest> mps;
    std::vector<host::EcrcRequest> ecrc;
};

Requests read_requests(const std::string &text, const host::MachineView *view,
                       host::Remarks &remarks) {
    Requests requests;
    const host::Machine *const machine = view != nullptr ? &view->machine : nullptr;
    for (const host::FeatureLine &line : host::read_lines(text, remarks)) {
        const host::Request request = host::read_request(line, machine, remarks);
        if (request.mps && request.mps->can_be_set())
            requests.mps.push_back(*request.mps);
        if (request.ecrc)
            requests.ecrc.push_back(*request.ecrc);
    }
    return requests;
}

// Checks one file. `view` may be null.
host::Remarks check_file(const std::string &file, const host::MachineView *view, bool describe) {
    host::Remarks remarks;
    const Requests requests = read_requests(host::read_feature_file(file), view, remarks);
    if (describe) {
        for (const host::MpsRequest &request : requests.mps)
            remarks.note(request.line, "asks for: " + host::text_of(request));
        for (const host::EcrcRequest &request : requests.ecrc)
            remarks.note(request.line, "asks for: " + host::text_of(request));
    }
    host::check_overridden(requests.mps, remarks);
    host::check_overridden(requests.ecrc, remarks);
    if (view != nullptr) {
        check_on_machine(requests.mps, *view, remarks);
        host::check_on_machine(requests.ecrc, *view, describe, remarks);
    }
    return remarks;
}

// Writes the remarks, and returns the exit status.
int write(const host::Remarks &remarks, const std::string &file, std::ostream &out) {
    remarks.write(file, out);
    return remarks.any() ? EXIT_REMARKS : EXIT_CLEAN;
}

// Returns the files that the options and the configuration name; remarks on the latter.
std::vector<NamedFile> named_files(const Options &options, unsigned domain,
                                   host::Remarks &remarks) {
    std::vector<NamedFile> files;
    for (const std::string &file : options.files)
        files.push_back({.name = file});
    if (options.config)
        for (NamedFile &file : read_config(*options.config, domain, remarks))
            files.push_back(std::move(file));
    return files;
}

// Checks the files, also behind one that cannot be read, and returns the exit status. `view` may be
// null.
int check_files(const std::vector<NamedFile> &files, const host::MachineView *view, bool describe,
                std::ostream &out) {
    int status = EXIT_CLEAN;
    for (const NamedFile &file : files) {
        try {
            const host::Remarks remarks =
                check_file(file.name, file.is_of_domain ? view : nullptr, describe);
            status = std::max(status, write(remarks, file.name, out));
        } catch (const host::InputError &error) {
            status = host::refuse(error);
        }
    }
    return status;
}

}  // namespace

int run(const Options &options, std::istream &in, std::ostream &out) {
    host::open_log(host::log_level(false, 0, false));
    std::optional<CheckedMachine> machine;
    if (options.has_machine())
        machine.emplace(options.source, in);
    std::optional<host::MachineView> view;
    if (machine)
        view.emplace(machine->view());
    int status = EXIT_CLEAN;
    host::Remarks remarks;
    const auto files = named_files(options, view ? view->report.domain : 0, remarks);
    if (options.config)
        status = write(remarks, options.config->string(), out);
    if (files.empty())
        throw host::InputError(options.config->string() + ": names no feature file");
    status = std::max(status, check_files(files, view ? &*view : nullptr, options.describe, out));
    if (!out.flush())
        throw host::InputError("standard output: cannot be written");
    return status;
}

}  // namespace check
