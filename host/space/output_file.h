// A file that is written whole or not at all. Faults of its name are found when it is opened, long
// before there is anything to write.
#pragma once

#include <filesystem>
#include <functional>
#include <string_view>

#include "host/base/path_walk.h"

namespace host {

// Takes the next piece of the text.
using Sink = std::function<void(std::string_view)>;

// A plain file is replaced by a new one, which has no name until it is complete, so that a run that
// ends early leaves nothing behind. On a file system without unnamed files it has a temporary name
// while it is written, and signals are blocked. The new file gets the permissions and the owner of
// the one that it replaces.
//
// A pipe or a device cannot be replaced and is written as it is. So is a file that the process has
// open already (/dev/stdout, and what standard output or error is redirected to): it is written
// through that descriptor, behind what is there, because replacing it would lose that and what
// comes later.
//
// In a sticky folder such as /tmp, where every user may add files and none may remove those of
// others, only links and files of this user and of the folder's owner are used.
class OutputFile {
public:
    // Throws DumpError for a file that cannot be written.
    explicit OutputFile(const std::filesystem::path &file);

    // Returns true when each would replace what the other has written.
    bool replaces_same_file_as(const OutputFile &other) const;

    // Writes the text that `content` gives to its sink. Throws DumpError. Call once for each
    // object.
    void write(const std::function<void(const Sink &)> &content);

private:
    void open_unnamed();
    void prepare(const Descriptor &file) const;
    void fill(const Descriptor &file, const std::function<void(const Sink &)> &content) const;
    void pour(const Descriptor &file, const std::function<void(const Sink &)> &content) const;
    void name_unnamed() const;
    [[noreturn]] void fail(int error, std::string_view what = {}) const;

    std::filesystem::path asked_for_;  // for messages
    Place place_;
    bool is_replaced_ = false;  // otherwise it is written as it is
    Descriptor open_;           // a copy of the descriptor that this process has the file open as
    Descriptor unnamed_;        // the new file, where the file system has files without names
};

}  // namespace host
