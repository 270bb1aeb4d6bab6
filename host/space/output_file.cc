#include "host/space/output_file.h"

#include <fcntl.h>

#include <cerrno>
#include <csignal>
#include <random>
#include <system_error>

#include "host/base/words.h"
#include "host/space/dump.h"

namespace host {
namespace {

namespace fs = std::filesystem;

constexpr mode_t PERMISSIONS = 0777;  // a set-user-ID bit was meant for the former owner
constexpr mode_t NEW_FILE = 0666;
constexpr mode_t PRIVATE_FILE = 0600;

// Applies the rule of the kernel's fs.protected_symlinks, fs.protected_regular and
// fs.protected_fifos.
void refuse_planted(const Step &step) {
    const struct stat &folder = step.folder_status;
    const bool is_shared = (folder.st_mode & S_ISVTX) && (folder.st_mode & (S_IWOTH | S_IWGRP));
    const mode_t type = step.status.st_mode & S_IFMT;
    const bool is_judged = type == S_IFLNK || type == S_IFREG || type == S_IFIFO;
    if (is_shared && is_judged && step.status.st_uid != geteuid() &&
        step.status.st_uid != folder.st_uid)
        throw DumpError(step.name + " belongs to another user, in a folder that others write to");
}

// Signals are blocked so that none ends the process while a file has a temporary name. Limit: a
// thread that a module started may still take one.
class SignalsBlocked {
public:
    SignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &former_);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &former_, nullptr); }
    SignalsBlocked(const SignalsBlocked &) = delete;
    SignalsBlocked &operator=(const SignalsBlocked &) = delete;

private:
    sigset_t former_{};
};

bool link_file(const Descriptor &file, const Descriptor &folder, const std::string &name) {
    return linkat(AT_FDCWD, descriptor_path(file).c_str(), folder.number(), name.c_str(),
                  AT_SYMLINK_FOLLOW) == 0;
}

std::string unforeseeable_name() {
    std::random_device source;
    return ".hoplar." + std::to_string(source()) + '.' + std::to_string(source()) + ".tmp";
}

// A name that others cannot predict, removed unless its file is renamed.
class TemporaryName {
public:
    explicit TemporaryName(const Place &place) : place_(place) {}
    ~TemporaryName() {
        if (given_)
            unlinkat(place_.folder.number(), name_.c_str(), 0);
    }
    TemporaryName(const TemporaryName &) = delete;
    TemporaryName &operator=(const TemporaryName &) = delete;

    Descriptor create(mode_t mode) {
        Descriptor file(openat(place_.folder.number(), name_.c_str(),
                               O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
        given_ = static_cast<bool>(file);
        return file;
    }
    bool link_to(const Descriptor &file) {
        given_ = link_file(file, place_.folder, name_);
        return given_;
    }
    bool move() {
        given_ = renameat(place_.folder.number(), name_.c_str(), place_.folder.number(),
                          place_.name.c_str()) != 0;
        return !given_;
    }

private:
    const Place &place_;
    const std::string name_ = unforeseeable_name();
    bool given_ = false;
    const SignalsBlocked blocked_;
};

bool is_same_file(const struct stat &one, const struct stat &other) {
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

bool is_open_as(int descriptor, const Place &place) {
    struct stat status {};
    return fstat(descriptor, &status) == 0 && is_same_file(status, place.status);
}

// Returns a copy of the descriptor that this process has the file open as; empty if there is none.
Descriptor copy_of_open(const Place &place) {
    const auto copy = [&](int descriptor) {
        return Descriptor(is_open_as(descriptor, place) ? fcntl(descriptor, F_DUPFD_CLOEXEC, 0)
                                                        : -1);
    };
    if (place.is_descriptor)
        if (const auto number = parse_number(place.name))
            return copy(static_cast<int>(*number));
    if (!S_ISREG(place.status.st_mode))
        return {};
    Descriptor output = copy(STDOUT_FILENO);
    return output ? std::move(output) : copy(STDERR_FILENO);
}

mode_t first_mode(const Place &place) {
    return place.file ? PRIVATE_FILE : NEW_FILE;
}

}  // namespace

OutputFile::OutputFile(const fs::path &file) : asked_for_(file) {
    try {
        place_ = walk_path(file, refuse_planted);
    } catch (const std::system_error &error) {
        fail(error.code().value());
    } catch (const DumpError &error) {
        throw DumpError(file.string() + ": " + error.what());
    }
    if (place_.name.empty() || S_ISDIR(place_.status.st_mode))
        throw DumpError(file.string() + ": is a directory");
    if (place_.file)
        open_ = copy_of_open(place_);
    // The folder's permissions alone decide whether a file can be replaced, but a file that the
    // user may not write must not be replaced either.
    if (place_.file && !open_ &&
        faccessat(AT_FDCWD, descriptor_path(place_.file).c_str(), W_OK, AT_EACCESS) != 0)
        fail(errno);
    is_replaced_ =
        !open_ && !place_.is_descriptor && (!place_.file || S_ISREG(place_.status.st_mode));
    if (is_replaced_)
        open_unnamed();
}

bool OutputFile::replaces_same_file_as(const OutputFile &other) const {
    struct stat one {};
    struct stat two {};
    return is_replaced_ && other.is_replaced_ && place_.name == other.place_.name &&
           fstat(place_.folder.number(), &one) == 0 &&
           fstat(other.place_.folder.number(), &two) == 0 && is_same_file(one, two);
}

void OutputFile::write(const std::function<void(const Sink &)> &content) {
    if (!is_replaced_) {
        if (!open_)
            open_ = Descriptor(
                open(descriptor_path(place_.file).c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC));
        return pour(open_, content);
    }
    if (unnamed_) {
        fill(unnamed_, content);
        return name_unnamed();
    }
    TemporaryName temporary(place_);
    const Descriptor file = temporary.create(first_mode(place_));
    prepare(file);
    fill(file, content);
    if (!temporary.move())
        fail(errno);
}

void OutputFile::open_unnamed() {
    unnamed_ = Descriptor(
        openat(place_.folder.number(), ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, first_mode(place_)));
    if (unnamed_)
        return prepare(unnamed_);
    // The file with a name is created when it is written, so that nothing is left behind until
    // then; here it is only tried.
    if (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL)
        fail(errno);
    if (!TemporaryName(place_).create(first_mode(place_)))
        fail(errno);
}

// Gives the new file the owner and group of the file that it replaces.
void OutputFile::prepare(const Descriptor &file) const {
    struct stat status {};
    if (!file || fstat(file.number(), &status) != 0)
        fail(errno);
    const struct stat &wanted = place_.status;
    if (place_.file && (status.st_uid != wanted.st_uid || status.st_gid != wanted.st_gid) &&
        fchown(file.number(), wanted.st_uid, wanted.st_gid) != 0)
        fail(errno, "its owner and group cannot be kept: ");
}

// The new file is private until it is complete, then gets the permissions of the old one. EPERM
// comes from file systems without permissions, which is no fault.
void OutputFile::fill(const Descriptor &file,
                      const std::function<void(const Sink &)> &content) const {
    pour(file, content);
    if (place_.file && fchmod(file.number(), place_.status.st_mode & PERMISSIONS) != 0 &&
        errno != EPERM)
        fail(errno);
    if (fsync(file.number()) != 0)
        fail(errno);
}

void OutputFile::pour(const Descriptor &file,
                      const std::function<void(const Sink &)> &content) const {
    if (!file)
        fail(errno);
    content([&](std::string_view text) {
        while (!text.empty()) {
            const ssize_t written = ::write(file.number(), text.data(), text.size());
            if (written < 0 && errno != EINTR)
                fail(errno);
            if (written > 0)
                text.remove_prefix(static_cast<std::size_t>(written));
        }
    });
}

// linkat() cannot replace a name that is taken, so the file is linked under a temporary name and
// renamed.
void OutputFile::name_unnamed() const {
    if (!place_.file && link_file(unnamed_, place_.folder, place_.name))
        return;
    TemporaryName temporary(place_);
    if (!temporary.link_to(unnamed_) || !temporary.move())
        fail(errno);
}

void OutputFile::fail(int error, std::string_view what) const {
    throw DumpError(asked_for_.string() + ": " + std::string(what) +
                    std::generic_category().message(error));
}

}  // namespace host
