#include "host/space/config_files.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace host {
namespace {

// Returns how many files may be open, so that some are left for the rest of the program.
std::size_t most_files() {
    constexpr std::size_t FOR_OTHERS = 64;
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return FOR_OTHERS;
    if (limit.rlim_cur < limit.rlim_max) {
        const rlimit raised{.rlim_cur = limit.rlim_max, .rlim_max = limit.rlim_max};
        if (setrlimit(RLIMIT_NOFILE, &raised) == 0)
            limit = raised;
    }
    const std::size_t all = limit.rlim_cur;
    return all > 2 * FOR_OTHERS ? all - FOR_OTHERS : std::max<std::size_t>(all / 2, 1);
}

// An access that is cut short leaves errno alone.
int error_of(ssize_t done, unsigned count) {
    if (done == static_cast<ssize_t>(count))
        return 0;
    return done < 0 ? errno : EIO;
}

}  // namespace

ConfigFiles::ConfigFiles(const Sysfs &sysfs, Mode mode)
    : sysfs_(sysfs), mode_(mode), most_open_(most_files()) {}

int ConfigFiles::read(RoutingId id, unsigned offset, std::uint8_t *bytes, unsigned count) {
    File *file = nullptr;
    if (const int error = open_file(id, file))
        return error;
    ++accesses_.reads;
    return error_of(pread(file->descriptor.number(), bytes, count, offset), count);
}

int ConfigFiles::write(RoutingId id, unsigned offset, const std::uint8_t *bytes, unsigned count) {
    File *file = nullptr;
    if (const int error = open_file(id, file))
        return error;
    if (file->write_error != 0 && mode_ == Mode::READ_AND_WRITE)
        if (const int error = open_again(id, file))
            return error;
    if (file->write_error != 0)
        return file->write_error;
    ++accesses_.writes;
    return error_of(pwrite(file->descriptor.number(), bytes, count, offset), count);
}

void ConfigFiles::forget(RoutingId id) {
    files_.erase(id);
    std::erase(open_, id);
}

bool ConfigFiles::is_another(RoutingId id) const {
    const auto found = files_.find(id);
    if (found == files_.end())
        return false;
    struct stat now {};
    return stat(path(id).c_str(), &now) != 0 ||
           found->second.identity != Identity{now.st_dev, now.st_ino};
}

// Returns 0 and the function's file, which is open, or an errno.
int ConfigFiles::open_file(RoutingId id, File *&file) {
    const auto found = files_.find(id);
    if (found != files_.end() && found->second.descriptor) {
        file = &found->second;
        return 0;
    }
    File opened{};
    if (const int error = open_anew(id, opened))
        return error;
    if (found != files_.end() && found->second.identity != opened.identity)
        return ENODEV;
    open_.push_back(id);
    file = &(files_[id] = std::move(opened));
    return 0;
}

// The file system may be writable by now.
int ConfigFiles::open_again(RoutingId id, File *&file) {
    file->descriptor = {};
    std::erase(open_, id);
    return open_file(id, file);
}

// A file system may be mounted read only, as in a container: reads go on then.
int ConfigFiles::open_anew(RoutingId id, File &file) {
    const std::string name = path(id);
    file.write_error = EBADF;
    if (mode_ == Mode::READ_AND_WRITE) {
        file.descriptor = open_name(name, O_RDWR);
        file.write_error = file.descriptor ? 0 : errno;
    }
    if (file.write_error == EBADF || file.write_error == EROFS || file.write_error == EACCES)
        file.descriptor = open_name(name, O_RDONLY);
    if (!file.descriptor)
        return errno;
    struct stat status {};
    if (fstat(file.descriptor.number(), &status) != 0)
        return errno;
    file.identity = {status.st_dev, status.st_ino};
    return 0;
}

// The limit may have been reached by others too.
Descriptor ConfigFiles::open_name(const std::string &name, int flags) {
    if (open_.size() >= most_open_)
        close_first();
    for (;;) {
        ++accesses_.opens;
        Descriptor opened(open(name.c_str(), flags | O_CLOEXEC));
        if (opened || (errno != EMFILE && errno != ENFILE) || open_.empty())
            return opened;
        close_first();
    }
}

void ConfigFiles::close_first() {
    files_.at(open_.front()).descriptor = {};
    open_.pop_front();
}

}  // namespace host
