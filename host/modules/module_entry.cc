#include "host/modules/module_entry.h"

#include <algorithm>
#include <span>
#include <utility>

#include "host/base/input.h"
#include "host/base/safe_text.h"
#include "host/base/words.h"

namespace host {
namespace {

namespace fs = std::filesystem;

// Returns the folder of the running executable; empty when it cannot be read.
fs::path executable_folder() {
    std::error_code ignored;
    return fs::read_symlink("/proc/self/exe", ignored).parent_path();
}

bool is_there(const fs::path &place) {
    std::error_code ignored;
    return fs::exists(place, ignored);
}

// Modules that scan their options print unknown ones to standard error as they are, so unsafe text
// is refused.
std::string safe_argument(std::string_view argument) {
    if (safe_text(argument) != argument)
        throw InputError("an argument holds control characters or is not UTF-8");
    return std::string(argument);
}

}  // namespace

ModuleEntry parse_module_entry(std::string_view text, std::optional<fs::path> beside) {
    const std::vector<std::string_view> pieces = split(text, ',');
    if (pieces.front().empty())
        throw InputError("no module file is named");
    ModuleEntry spec{
        .file = std::string(pieces.front()), .args = {}, .beside = std::move(beside), .line = 0};
    for (const std::string_view argument : std::span(pieces).subspan(1))
        if (!argument.empty())
            spec.args.push_back(safe_argument(argument));
    return spec;
}

std::vector<fs::path> module_places(const ModuleEntry &spec) {
    if (spec.file.find('/') != std::string::npos)
        return {spec.file};
    // A bare name is never passed on, because the dynamic loader would search for it in its own
    // directories.
    std::vector<fs::path> places;
    if (const fs::path folder = executable_folder(); !folder.empty())
        for (const char *const relative : {"../lib/hoplar", "../../module"})
            places.push_back((folder / relative / spec.file).lexically_normal());
    if (spec.beside)
        places.push_back((spec.beside->empty() ? "." : *spec.beside) / spec.file);
    return places;
}

std::optional<fs::path> find_module(const ModuleEntry &spec) {
    const std::vector<fs::path> places = module_places(spec);
    const auto found = std::ranges::find_if(places, is_there);
    return found == places.end() ? std::nullopt : std::optional(*found);
}

std::string not_found(const ModuleEntry &spec) {
    std::vector<std::string> tried;
    for (const fs::path &place : module_places(spec))
        tried.push_back(place.string());
    const fs::path here = fs::path(".") / spec.file;
    return spec.file + ": not found, tried " + join(tried, ", ") +
           (is_there(here) ? " (that of the working directory is " + here.string() + ")" : "");
}

}  // namespace host
