// The text goes to a file beside the one asked for, which takes its place when it is complete. What
// is not a plain file (a pipe) cannot be replaced and is written as it is. A file that the process
// has open already (/dev/stdout, and what standard output or error is redirected to) is written
// through that descriptor, behind what stands there: replaced, it would lose that, and what comes
// later.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <optional>
#include <string_view>
#include <system_error>

#include "host/base/address.h"
#include "host/space/dump.h"

namespace host {

namespace {

namespace fs = std::filesystem;

[[noreturn]] void fail(const fs::path &file, int error) {
    throw DumpError(file.string() + ": " + std::generic_category().message(error));
}

// Errors name the file that the user asked for.
class OutputFile {
public:
    OutputFile(const fs::path &path, int flags, const fs::path &asked_for, mode_t mode = 0)
        : OutputFile(open(path.c_str(), O_WRONLY | O_CLOEXEC | flags, mode), asked_for) {}
    // A copy of a descriptor that is open already.
    static OutputFile copy(int descriptor, const fs::path &asked_for) {
        return {fcntl(descriptor, F_DUPFD_CLOEXEC, 0), asked_for};
    }
    ~OutputFile() { close(fd_); }
    OutputFile(const OutputFile &) = delete;
    OutputFile &operator=(const OutputFile &) = delete;

    void write(std::string_view text) {
        while (!text.empty()) {
            const ssize_t written = ::write(fd_, text.data(), text.size());
            if (written < 0 && errno != EINTR)
                fail(file_, errno);
            if (written > 0)
                text.remove_prefix(static_cast<std::size_t>(written));
        }
    }

    // No more than permissions: a set-user-ID bit was for the former owner. A file system that has
    // no permissions gives away none.
    void permit(fs::perms permissions) {
        if (fchmod(fd_, static_cast<mode_t>(permissions & fs::perms::all)) != 0 && errno != EPERM)
            fail(file_, errno);
    }

    void sync() {
        if (fsync(fd_) != 0)
            fail(file_, errno);
    }

private:
    OutputFile(int fd, const fs::path &asked_for) : file_(asked_for), fd_(fd) {
        if (fd_ < 0)
            fail(file_, errno);
    }

    fs::path file_;
    int fd_;
};

// A file name that is given back unless the file has taken its place.
class TemporaryName {
public:
    explicit TemporaryName(const fs::path &target) : path_(target) {
        // Without the target's name, which may be as long as a name can be.
        path_.replace_filename(".hoplar." + std::to_string(getpid()) + ".tmp");
        unlink(path_.c_str());  // left over from a process that had the same ID
    }
    ~TemporaryName() {
        if (!moved_)
            unlink(path_.c_str());
    }
    TemporaryName(const TemporaryName &) = delete;
    TemporaryName &operator=(const TemporaryName &) = delete;

    const fs::path &path() const { return path_; }

    void move_to(const fs::path &target, const fs::path &asked_for) {
        if (rename(path_.c_str(), target.c_str()) != 0)
            fail(asked_for, errno);
        moved_ = true;
    }

private:
    fs::path path_;
    bool moved_ = false;
};

void append_hex(std::string &text, unsigned value, unsigned digits) {
    while (digits-- > 0)
        text += "0123456789abcdef"[value >> 4 * digits & 0xF];
}

char lower_case(char c) {
    return static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
}

// The title as it was read; one that does not begin with the function's address gets it.
void append_title(std::string &text, const std::string &title, RoutingId id) {
    const std::string address = bdf_text(id);
    std::string first_word = title.substr(0, title.find(' '));
    std::ranges::transform(first_word, first_word.begin(), lower_case);
    if (!first_word.ends_with(address)) {
        text += address;
        text += ' ';
    }
    text += title;
}

void append_function(std::string &text, const ConfigImage &image, RoutingId id) {
    append_title(text, image.title(id), id);
    const std::vector<std::uint8_t> bytes = image.bytes(id);
    for (unsigned offset = 0; offset < bytes.size(); ++offset) {
        if (offset % 16 == 0) {
            text += '\n';
            append_hex(text, offset, offset < 0x100 ? 2 : 3);
            text += ':';
        }
        text += ' ';
        append_hex(text, bytes[offset], 2);
    }
    text += "\n\n";
}

void write_functions(OutputFile &output, const ConfigImage &image) {
    constexpr std::size_t ENOUGH = 1 << 20;  // for one write
    std::string text;
    for (const RoutingId id : image.functions()) {
        append_function(text, image, id);
        if (text.size() < ENOUGH)
            continue;
        output.write(text);
        text.clear();
    }
    output.write(text);
}

// Whether a path stands for a descriptor of some process: a link that says what it leads to, and
// leads there whatever it says.
bool is_descriptor(const fs::path &path) {
    const fs::path folder = path.parent_path();
    return folder.filename() == "fd" && folder.native().starts_with("/proc/");
}

// The file itself behind all symbolic links, there or not: what is written replaces it, not a link.
fs::path without_links(const fs::path &file) {
    constexpr unsigned MOST_LINKS = 40;
    fs::path path = file;
    for (unsigned links = 0; links <= MOST_LINKS; ++links) {
        std::error_code error;
        const fs::path folder = fs::canonical(path.parent_path() / ".", error);
        if (error)
            fail(file, error.value());
        path = folder / path.filename();
        if (is_descriptor(path) || !fs::is_symlink(path, error))
            return path;
        path = folder / fs::read_symlink(path, error);
    }
    fail(file, ELOOP);
}

// The descriptor of this process that a path of the first kind stands for.
std::optional<int> named_descriptor(const fs::path &path) {
    const std::string name = path.filename().string();
    int descriptor = -1;
    const auto parsed = std::from_chars(name.data(), name.data() + name.size(), descriptor);
    if (!is_descriptor(path) || parsed.ec != std::errc() ||
        !path.native().starts_with("/proc/" + std::to_string(getpid()) + '/'))
        return std::nullopt;
    return descriptor;
}

// Standard output or error, when it goes to that plain file.
std::optional<int> standard_descriptor(const fs::path &path) {
    struct stat wanted = {};
    if (stat(path.c_str(), &wanted) != 0 || !S_ISREG(wanted.st_mode))
        return std::nullopt;
    for (const int descriptor : {STDOUT_FILENO, STDERR_FILENO}) {
        struct stat open_file = {};
        if (fstat(descriptor, &open_file) == 0 && open_file.st_dev == wanted.st_dev &&
            open_file.st_ino == wanted.st_ino)
            return descriptor;
    }
    return std::nullopt;
}

void replace(const fs::path &target, const fs::path &file, const ConfigImage &image) {
    std::error_code none;
    const fs::file_status status = fs::status(target, none);
    // The folder alone decides whether a file can be replaced; that is no leave to do so.
    if (fs::exists(status) && faccessat(AT_FDCWD, target.c_str(), W_OK, AT_EACCESS) != 0)
        fail(file, errno);
    TemporaryName temporary(target);
    {
        // What replaces a file is for nobody else to read until it has that file's permissions.
        OutputFile output(temporary.path(), O_CREAT | O_EXCL, file,
                          fs::exists(status) ? 0600 : 0666);
        write_functions(output, image);
        if (fs::exists(status))
            output.permit(status.permissions());
        output.sync();
    }
    temporary.move_to(target, file);
}

}  // namespace

void write_dump(const fs::path &file, const ConfigImage &image) {
    const fs::path target = without_links(file);
    std::optional<int> descriptor = named_descriptor(target);
    if (!descriptor)
        descriptor = standard_descriptor(target);
    if (descriptor) {
        OutputFile output = OutputFile::copy(*descriptor, file);
        write_functions(output, image);
        return;
    }
    std::error_code none;
    const fs::file_status status = fs::status(target, none);
    if (fs::is_directory(status))
        throw DumpError(file.string() + ": is a directory");
    if (is_descriptor(target) || (fs::exists(status) && !fs::is_regular_file(status))) {
        OutputFile output(target, O_TRUNC, file);
        write_functions(output, image);
        return;
    }
    replace(target, file, image);
}

}  // namespace host
