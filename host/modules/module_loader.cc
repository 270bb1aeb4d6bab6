#include "host/modules/module_loader.h"

#include <dlfcn.h>

#include <memory>
#include <set>

#include "host/base/log.h"
#include "host/base/module_faults.h"
#include "host/modules/trusted_file.h"
#include "platform/pci_access.h"
#include "platform/server.h"

namespace host {
namespace {

struct Unload {
    void operator()(void *handle) const { dlclose(handle); }
};
using Library = std::unique_ptr<void, Unload>;

struct EntryPoints {
    decltype(&server_mod_version) version;
    decltype(&server_mod_init) init;
};

// Null when the library has no such function.
template <typename FunctionPointer>
FunctionPointer find_function(const Library &library, const char *name) {
    return reinterpret_cast<FunctionPointer>(dlsym(library.get(), name));
}

std::optional<EntryPoints> find_entry_points(const Library &library) {
    const EntryPoints entry{
        .version = find_function<decltype(EntryPoints::version)>(library, "server_mod_version"),
        .init = find_function<decltype(EntryPoints::init)>(library, "server_mod_init")};
    if (entry.version == nullptr || entry.init == nullptr)
        return std::nullopt;
    return entry;
}

std::optional<version_pair_t> known_version(std::uint32_t packed) {
    return packed == bad_version ? std::nullopt : std::optional(unpack_version(packed));
}

// The arguments have the module's name in front of them, as in a program's vector, and a null
// behind them: option scanners of modules look at both places.
pci_err_t call_init(const EntryPoints &entry, const ModuleEntry &spec) {
    std::vector<const char *> vector{spec.file.c_str()};
    for (const std::string &argument : spec.args)
        vector.push_back(argument.c_str());
    vector.push_back(nullptr);
    const mod_init_args_t args{.server_version = SERVER_VERSION,
                               .lib_version = LIBRARY_VERSION,
                               .argc = static_cast<std::uint32_t>(spec.args.size()),
                               .argv = spec.args.empty() ? nullptr : vector.data() + 1};
    return entry.init(&args);
}

// Returns the dynamic loader's message, preceded by the file unless it names that already.
std::string load_error(const std::string &file) {
    const std::string reason = dlerror();
    return "module " + (reason.starts_with(file) ? reason : file + ": " + reason);
}

class Loader {
public:
    ModuleResult load(const ModuleEntry &spec) {
        ModuleResult module{.file = spec.file, .version = std::nullopt, .result = std::nullopt};
        const auto place = find_module(spec);
        if (!place) {
            log_error("module " + not_found(spec));
            return module;
        }
        module.file = place->string();
        if (const auto reason = distrust(*place)) {
            log_error("module " + module.file + ": " + *reason);
            return module;
        }
        Library library(dlopen(place->c_str(), RTLD_NOW | RTLD_LOCAL));
        if (library == nullptr) {
            log_error(load_error(module.file));
            return module;
        }
        const auto entry = find_entry_points(library);
        if (!entry) {
            log_error("module " + module.file +
                      ": no module, server_mod_init or server_mod_version is missing");
            return module;
        }
        if (!started_.insert(library.get()).second) {
            log_error("module " + module.file + ": listed more than once, started only once");
            return module;
        }
        // A module may leave hooks and threads behind even if its start fails, so it is never
        // unloaded.
        static_cast<void>(library.release());
        start(spec, *entry, module);
        return module;
    }

private:
    static void start(const ModuleEntry &spec, const EntryPoints &entry, ModuleResult &module) {
        const ModuleStart starting(module.file);
        try {
            call(spec, entry, module);
        } catch (...) {
            log_exception(module.file, "its start");
        }
    }

    static void call(const ModuleEntry &spec, const EntryPoints &entry, ModuleResult &module) {
        module.version = known_version(entry.version());
        log_info("module " + module.file + ", version " +
                 (module.version ? version_text(*module.version) : "unknown"));
        module.result = call_init(entry, spec);
        if (!module.runs())
            log_error("module " + module.file +
                      ": refuses to start: " + pci_strerror(*module.result));
    }

    std::set<void *> started_;
};

}  // namespace

std::vector<ModuleResult> load_modules(const std::vector<ModuleEntry> &specs) {
    Loader loader;
    std::vector<ModuleResult> results;
    for (const ModuleEntry &spec : specs)
        results.push_back(loader.load(spec));
    return results;
}

std::string version_text(version_pair_t version) {
    return std::to_string(version.major) + "." + std::to_string(version.minor);
}

}  // namespace host
