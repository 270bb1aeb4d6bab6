#include "host/base/path_walk.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/vfs.h>

#include <array>
#include <cerrno>
#include <climits>
#include <list>
#include <system_error>

#include "host/base/words.h"

namespace host {
namespace {

constexpr unsigned MOST_LINKS = 40;  // the kernel's limit

[[noreturn]] void fail(int error) {
    throw std::system_error(error, std::generic_category());
}

Descriptor open_path(const Descriptor &folder, const std::string &name, int flags) {
    return Descriptor(openat(folder.number(), name.c_str(), O_PATH | O_CLOEXEC | flags));
}

struct stat status_of(const Descriptor &descriptor) {
    struct stat status {};
    if (fstat(descriptor.number(), &status) != 0)
        fail(errno);
    return status;
}

// Links in /proc are magic: they lead to an open file or a folder, whatever their text says.
bool is_in_proc(const Descriptor &folder) {
    struct statfs status {};
    return fstatfs(folder.number(), &status) == 0 && status.f_type == PROC_SUPER_MAGIC;
}

std::string link_text(const Descriptor &link) {
    std::array<char, PATH_MAX> text{};
    const ssize_t length = readlinkat(link.number(), "", text.data(), text.size());
    if (length < 0)
        fail(errno);
    return {text.data(), static_cast<std::size_t>(length)};
}

class Walk {
public:
    explicit Walk(const std::function<void(const Step &)> &look) : look_(look) {}

    Place to(const std::string &path) && {
        begin(path);
        while (!left_.empty()) {
            place_.name = left_.front();
            left_.pop_front();
            place_.file = Descriptor();
            place_.status = {};
            take();
        }
        return std::move(place_);
    }

private:
    void begin(const std::string &path) {
        std::list<std::string> pieces;
        for (const std::string_view piece : split(path, '/'))
            pieces.emplace_back(piece);
        left_.splice(left_.begin(), pieces);
        if (path.starts_with('/') || !place_.folder)
            place_.folder = Descriptor(
                open(path.starts_with('/') ? "/" : ".", O_PATH | O_DIRECTORY | O_CLOEXEC));
        if (!place_.folder)
            fail(errno);
    }

    void take() {
        std::string &name = place_.name;
        if (name.empty() || name == "." || name == "..") {
            enter(open_path(place_.folder, name.empty() ? "." : name, O_DIRECTORY));
            name.clear();
            return;
        }
        // O_DIRECTORY is tried first, because only that makes an automount mount its folder.
        Descriptor next = open_path(place_.folder, name, O_NOFOLLOW | O_DIRECTORY);
        if (!next)
            next = open_path(place_.folder, name, O_NOFOLLOW);
        if (!next && errno == ENOENT && left_.empty())
            return;
        if (!next)
            fail(errno);
        place_.status = status_of(next);
        look_({.folder = place_.folder,
               .folder_status = status_of(place_.folder),
               .name = name,
               .status = place_.status});
        if (S_ISLNK(place_.status.st_mode))
            follow(std::move(next));
        else
            arrive(std::move(next));
    }

    void follow(Descriptor link) {
        if (++links_ > MOST_LINKS)
            fail(ELOOP);
        if (!is_in_proc(place_.folder))
            return begin(link_text(link));
        Descriptor target = open_path(place_.folder, place_.name, 0);
        if (!target)
            fail(errno);
        place_.status = status_of(target);
        place_.is_descriptor = left_.empty();
        arrive(std::move(target));
    }

    void arrive(Descriptor next) {
        if (left_.empty())
            place_.file = std::move(next);
        else
            enter(std::move(next));
    }

    void enter(Descriptor folder) {
        if (!folder)
            fail(errno);
        place_.folder = std::move(folder);
    }

    const std::function<void(const Step &)> &look_;
    Place place_;
    std::list<std::string> left_;  // components
    unsigned links_ = 0;
};

}  // namespace

Place walk_path(const std::filesystem::path &path, const std::function<void(const Step &)> &look) {
    return Walk(look).to(path.native());
}

std::string descriptor_path(const Descriptor &descriptor) {
    return "/proc/self/fd/" + std::to_string(descriptor.number());
}

}  // namespace host
