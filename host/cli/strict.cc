#include "host/cli/strict.h"

#include "host/base/log.h"
#include "host/cli/wanted_files.h"

namespace host {

std::vector<FeatureFile> open_feature_files(const std::vector<ModuleEntry> &modules) {
    std::vector<FeatureFile> files;
    for (const ModuleEntry &module : modules) {
        if (!reads_feature_files(module))
            continue;
        const ModuleArguments arguments = sort_arguments(module);
        for (const std::filesystem::path &file : arguments.files)
            files.push_back(open_feature_file(file));
        for (const std::string &argument : arguments.others)
            if (std::string complaint = argument_complaint(argument); !complaint.empty())
                files.push_back(
                    {.name = module.file, .text = "", .unusable = std::move(complaint)});
    }
    return files;
}

bool report_faults(const std::vector<RequestReport> &requests, bool is_part) {
    bool any = false;
    for (const RequestReport &request : requests)
        if (is_fault(request.status) && !(is_part && request.is_absent)) {
            log_error(fault_text(request));
            any = true;
        }
    return !any;
}

}  // namespace host
