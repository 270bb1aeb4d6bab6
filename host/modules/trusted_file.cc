#include "host/modules/trusted_file.h"

#include <sys/xattr.h>

#include <cstdlib>
#include <system_error>

#include "host/base/path_walk.h"
#include "host/base/words.h"

namespace host {
namespace {

bool is_trusted(uid_t user) {
    const char *const sudo_user = std::getenv("SUDO_UID");
    return user == 0 || (sudo_user != nullptr && parse_number(sudo_user) == user);
}

// With an access control list, the group's permissions are the most that the list gives to any user
// or group in it.
bool has_access_list(const Descriptor &file) {
    return getxattr(descriptor_path(file).c_str(), "system.posix_acl_access", nullptr, 0) > 0;
}

// A link has no permissions of its own, and a device does not keep what is written to it.
bool others_write(const Descriptor &file, const struct stat &status) {
    if (S_ISLNK(status.st_mode) || S_ISCHR(status.st_mode) || S_ISBLK(status.st_mode))
        return false;
    return (status.st_mode & S_IWOTH) != 0 ||
           ((status.st_mode & S_IWGRP) != 0 && (status.st_gid != 0 || has_access_list(file)));
}

std::string name_of(const Descriptor &file) {
    std::error_code none;
    return std::filesystem::read_symlink(descriptor_path(file), none).string();
}

struct Distrust {
    std::string reason;
};

void check_owner(const struct stat &status, const std::string &name) {
    if (!is_trusted(status.st_uid))
        throw Distrust{name + " belongs to user " + std::to_string(status.st_uid)};
}

void check_writers(const Descriptor &file, const struct stat &status) {
    if (others_write(file, status))
        throw Distrust{name_of(file) + " can be written to by others than root"};
}

void check_folder(const Descriptor &folder, const struct stat &status) {
    check_owner(status, name_of(folder));
    if ((status.st_mode & S_ISVTX) == 0)
        check_writers(folder, status);
}

void check_step(const Step &step) {
    check_folder(step.folder, step.folder_status);
    if (!S_ISDIR(step.status.st_mode))
        check_owner(step.status, name_of(step.folder) + '/' + step.name);
}

// The last component's folder and file are held to stricter rules, which no single step can apply.
void check_end(const Place &place) {
    struct stat folder {};
    if (!place.file || place.is_descriptor || fstat(place.folder.number(), &folder) != 0)
        return;
    check_writers(place.folder, folder);
    check_writers(place.file, place.status);
}

}  // namespace

std::optional<std::string> distrust(const std::filesystem::path &file) {
    if (geteuid() != 0)
        return std::nullopt;
    try {
        check_end(walk_path(std::filesystem::absolute(file), check_step));
    } catch (const Distrust &found) {
        return found.reason + ", and root does not use it";
    } catch (const std::system_error &error) {
        // A file that does not exist needs no trust; a relative path whose working directory is
        // gone ends here too.
        if (!std::filesystem::exists(file))
            return std::nullopt;
        return error.code().message() + ", and root does not use what it cannot look at";
    }
    return std::nullopt;
}

}  // namespace host
