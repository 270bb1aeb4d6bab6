#include "host/cli/wanted_files.h"

#include <algorithm>
#include <string_view>

#include "host/base/input.h"
#include "host/base/log.h"
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

HostConfig wanted_modules(const Options &options) {
    HostConfig config;
    if (options.config) {
        require_trust("", *options.config);
        config = read_host_config(*options.config);
    }
    for (const std::string &warning : config.warnings)
        log_warning(warning);
    const auto add = [&](std::vector<ModuleEntry> &listed) {
        listed.insert(listed.end(), options.modules.begin(), options.modules.end());
    };
    add(config.modules);
    for (auto &[domain, own] : config.of_domain)
        add(own);
    for (const ModuleEntry &module : config.all_modules())
        if (const auto place = find_module(module))
            require_trust("module ", *place);
    return config;
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
    const auto add = [&](fs::path file) {
        if (std::ranges::find(files, file) == files.end())
            files.push_back(std::move(file));
    };
    if (options.config)
        add(full_path(*options.config));
    for (const ModuleEntry &module : wanted_modules(options).all_modules()) {
        if (const auto place = find_module(module))
            add(full_path(*place));
        std::ranges::for_each(sort_arguments(module).files, add);
    }
    return files;
}

}  // namespace host
