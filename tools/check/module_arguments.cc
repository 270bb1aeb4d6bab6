#include "tools/check/module_arguments.h"

#include "host/base/log.h"
#include "host/cli/wanted_files.h"
#include "host/modules/host_config.h"

namespace check {
namespace {

constexpr const char *MODULE = "hoplar-enable_features.so";
constexpr std::string_view IGNORED = "-v";  // the module takes it, and does nothing

// Remarks on an argument that hands no file to the module, or not as it is documented.
void remark_other(const std::string &argument, std::size_t line, host::Remarks &remarks) {
    if (argument == IGNORED)
        return;
    const std::size_t equals = argument.find('=');
    std::string file = equals == std::string::npos ? argument : argument.substr(equals + 1);
    if (file.empty() || file.starts_with('-'))
        file = "FILE";
    remarks.warning(line, "argument " + host::quoted(argument) + " of " + MODULE +
                              " is not --config=FILE: write --config=" + file);
}

void check_entry(const host::ModuleEntry &entry, std::vector<std::string> &files,
                 host::Remarks &remarks) {
    if (entry.file.starts_with('-'))
        return remarks.error(entry.line, host::quoted(entry.file) +
                                             " stands behind a blank, and is taken for a module: "
                                             "write MODULE,ARGUMENT without blanks");
    if (std::filesystem::path(entry.file).filename() != MODULE)
        return;
    const host::ModuleArguments arguments = host::sort_arguments(entry);
    for (const std::filesystem::path &file : arguments.files)
        files.push_back(file.string());
    for (const std::string &argument : arguments.others)
        remark_other(argument, entry.line, remarks);
    if (arguments.files.empty() && arguments.others.empty())
        remarks.warning(entry.line, std::string(MODULE) + " is given no feature file: write " +
                                        entry.file + ",--config=FILE");
}

}  // namespace

std::vector<std::string> read_config(const std::filesystem::path &config, host::Remarks &remarks) {
    const host::HostConfig read = host::read_host_config(config);
    for (const std::string &warning : read.warnings)
        host::log_warning(warning);
    std::vector<std::string> files;
    for (const host::ModuleEntry &entry : read.modules)
        check_entry(entry, files, remarks);
    return files;
}

}  // namespace check
