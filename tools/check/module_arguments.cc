#include "tools/check/module_arguments.h"

#include "host/base/log.h"
#include "host/cli/wanted_files.h"
#include "host/modules/host_config.h"

namespace check {
namespace {

void check_entry(const host::ModuleEntry &entry, bool is_of_domain, std::vector<NamedFile> &files,
                 host::Remarks &remarks) {
    if (entry.file.starts_with('-'))
        return remarks.error(entry.line, host::in_quotes(entry.file) +
                                             " stands behind a blank, and is taken for a module: "
                                             "write MODULE,ARGUMENT without blanks");
    if (!host::reads_feature_files(entry))
        return;
    const host::ModuleArguments arguments = host::sort_arguments(entry);
    for (const std::filesystem::path &file : arguments.files)
        files.push_back({file.string(), is_of_domain});
    for (const std::string &argument : arguments.others)
        if (const std::string text = host::argument_complaint(argument); !text.empty())
            remarks.warning(entry.line, text);
    if (arguments.files.empty() && arguments.others.empty())
        remarks.warning(entry.line, entry.file + " is given no feature file: write " + entry.file +
                                        ",--config=FILE");
}

}  // namespace

std::vector<NamedFile> read_config(const std::filesystem::path &config, unsigned domain,
                                   host::Remarks &remarks) {
    const host::HostConfig read = host::read_host_config(config);
    for (const std::string &warning : read.warnings)
        host::log_warning(warning);
    std::vector<NamedFile> files;
    const auto check_section = [&](const std::vector<host::ModuleEntry> &section) {
        for (const host::ModuleEntry &entry : section)
            check_entry(entry, &section == &read.modules_of(domain), files, remarks);
    };
    check_section(read.modules);
    for (const auto &[number, section] : read.of_domain)
        check_section(section);
    return files;
}

}  // namespace check
