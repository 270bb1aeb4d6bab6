#include "host/cli/wanted_files.h"

#include <string_view>

#include "host/base/input.h"
#include "host/base/log.h"
#include "host/modules/host_config.h"
#include "host/modules/trusted_file.h"

namespace host {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view CONFIG_OPTION = "--config";
constexpr const char *FEATURES_MODULE = "hoplar-enable_features.so";
constexpr const char *IGNORED = "-v";  // the module takes it, and does nothing

void require_trust(const std::string &what, const fs::path &file) {
    if (const auto reason = distrust(file))
        throw InputError(what + file.string() + ": " + *reason);
}

// Links stay as they are: what they lead to is for who copies the files.
fs::path full_path(const fs::path &file) {
    return fs::absolute(file).lexically_normal();
}

}  // namespace

std::vector<ModuleEntry> wanted_modules(const Options &options) {
    HostConfig config;
    if (options.config) {
        require_trust("", *options.config);
        config = read_host_config(*options.config);
    }
    for (const std::string &warning : config.warnings)
        log_warning(warning);
    config.modules.insert(config.modules.end(), options.modules.begin(), options.modules.end());
    for (const ModuleEntry &module : config.modules)
        if (const auto place = find_module(module))
            require_trust("module ", *place);
    return config.modules;
}

ModuleArguments sort_arguments(const ModuleEntry &module) {
    ModuleArguments sorted;
    for (auto argument = module.args.begin(); argument != module.args.end(); ++argument) {
        const bool is_alone = *argument == CONFIG_OPTION && argument + 1 != module.args.end();
        const bool is_joined = argument->starts_with(std::string(CONFIG_OPTION) + '=');
        if (is_alone)
            ++argument;
        const std::string file = is_joined ? argument->substr(CONFIG_OPTION.size() + 1) : *argument;
        if ((is_alone || is_joined) && !file.empty())
            sorted.files.push_back(full_path(file));
        else
            sorted.others.push_back(*argument);
    }
    return sorted;
}

bool reads_feature_files(const ModuleEntry &module) {
    return fs::path(module.file).filename() == FEATURES_MODULE;
}

std::string argument_complaint(const std::string &argument) {
    if (argument == IGNORED)
        return "";
    const std::size_t equals = argument.find('=');
    std::string file = equals == std::string::npos ? argument : argument.substr(equals + 1);
    if (file.empty() || file.starts_with('-'))
        file = "FILE";
    return "argument \"" + excerpt(argument) + "\" of " + FEATURES_MODULE +
           " is not --config=FILE: write --config=" + file;
}

std::vector<fs::path> wanted_files(const Options &options) {
    std::vector<fs::path> files;
    if (options.config)
        files.push_back(full_path(*options.config));
    for (const ModuleEntry &module : wanted_modules(options)) {
        if (const auto place = find_module(module))
            files.push_back(full_path(*place));
        for (fs::path &file : sort_arguments(module).files)
            files.push_back(std::move(file));
    }
    return files;
}

}  // namespace host
