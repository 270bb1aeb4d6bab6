// The text goes to a file beside the one asked for, which takes its place when it is complete. What
// is not a plain file (a pipe, /dev/stdout) cannot be replaced and is written as it is.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>
#include <system_error>

#include "host/machine/bdf_text.h"
#include "host/machine/dump.h"

namespace host {

namespace {

namespace fs = std::filesystem;

[[noreturn]] void fail(const fs::path &file, int error) {
    throw DumpError(file.string() + ": " + std::generic_category().message(error));
}

// Errors name the file that the user asked for.
class OutputFile {
public:
    OutputFile(const fs::path &path, int flags, const fs::path &asked_for) : file_(asked_for) {
        fd_ = open(path.c_str(), O_WRONLY | O_CLOEXEC | flags, 0666);
        if (fd_ < 0)
            fail(file_, errno);
    }
    ~OutputFile() {
        if (fd_ >= 0)
            close(fd_);
    }
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

    void sync() {
        if (fsync(fd_) != 0)
            fail(file_, errno);
    }

private:
    fs::path file_;
    int fd_ = -1;
};

// A file name that is given back unless the file has taken its place.
class TemporaryName {
public:
    explicit TemporaryName(const fs::path &target) : path_(target) {
        std::string name = ".";
        name += target.filename().string();
        name += '.';
        name += std::to_string(getpid());
        name += ".tmp";
        path_.replace_filename(name);
        unlink(path_.c_str());  // left over from a process that had the same ID
    }
    ~TemporaryName() {
        if (!moved_)
            unlink(path_.c_str());
    }
    TemporaryName(const TemporaryName &) = delete;
    TemporaryName &operator=(const TemporaryName &) = delete;

    const fs::path &path() const { return path_; }

    void move_to(const fs::path &target) {
        if (rename(path_.c_str(), target.c_str()) != 0)
            fail(target, errno);
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

// The title as it was read; one that does not begin with the function's address gets it.
void append_title(std::string &text, const std::string &title, RoutingId id) {
    const std::string address = bdf_text(id);
    if (!title.substr(0, title.find(' ')).ends_with(address)) {
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

}  // namespace

void write_dump(const fs::path &file, const ConfigImage &image) {
    std::error_code none;
    const fs::file_status status = fs::status(file, none);
    if (fs::is_directory(status))
        throw DumpError(file.string() + ": is a directory");
    if (fs::exists(status) && !fs::is_regular_file(status)) {
        OutputFile output(file, O_TRUNC, file);
        write_functions(output, image);
        return;
    }
    // Through a symbolic link, the file that it leads to is replaced, not the link.
    const fs::path target = fs::exists(status) ? fs::canonical(file, none) : file;
    TemporaryName temporary(target);
    {
        OutputFile output(temporary.path(), O_CREAT | O_EXCL, file);
        write_functions(output, image);
        output.sync();
    }
    if (fs::exists(status))
        fs::permissions(temporary.path(), status.permissions(), none);
    temporary.move_to(target);
}

}  // namespace host
