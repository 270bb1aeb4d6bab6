// Whether root can rely on a file: what it says is done, or run, with all of root's power.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace host {

// Why root, when it is the one who runs this, does not use a file; nothing if it does, if somebody
// else runs this, and for a file that cannot be found.
//
// The file and every folder and link on the way to it belong to root or to the user for whom sudo
// runs this, and only they can write to them. Folders on the way may be as /tmp, where everybody
// can put files and nobody can rename those of others (sticky), but not the one that the file lies
// in. Files that the process has open already (/dev/fd/N) are taken as they were handed over.
std::optional<std::string> distrust(const std::filesystem::path &file);

}  // namespace host
