// Tells whether root can rely on a file whose content it obeys or runs.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace host {

// Returns why this process, running as root, must not use a file; nullopt if it may, if the process
// does not run as root, and for a file that cannot be found.
//
// The file and every folder and link on the way to it must belong to root or to the user who called
// sudo, and only they may write to them. Folders on the way may be sticky like /tmp, where every
// user can add files but not rename those of others, except the folder that holds the file. Files
// that the process has open already (/dev/fd/N) are accepted as they were handed over.
std::optional<std::string> distrust(const std::filesystem::path &file);

}  // namespace host
