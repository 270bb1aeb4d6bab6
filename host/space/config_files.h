// The kernel's files of configuration space, one a function: "/sys/bus/pci/devices/.../config".
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <deque>
#include <map>

#include "host/base/descriptor.h"
#include "host/space/sysfs.h"

namespace host {

// Counts the calls of the operating system for configuration space.
struct Accesses {
    std::uint64_t reads = 0;
    std::uint64_t writes = 0;
    std::uint64_t opens = 0;
};

// A function's file is opened at its first access and stays open until forget(), because an open
// file belongs to the function and not to its address: once the kernel has removed the function,
// every access gives ENODEV, whatever is at the address by then. Only where the process may not
// have enough files open is the one closed that was opened first. It is opened again when it is
// needed, and gives ENODEV as well if it is another function's. Not thread-safe.
class ConfigFiles {
public:
    enum class Mode { READ, READ_AND_WRITE };

    // Raises the process's limit of open files as far as it may. `sysfs` must outlive the object.
    ConfigFiles(const Sysfs &sysfs, Mode mode);

    // Return 0 or an errno, which is EIO for an access that was cut short.
    int read(RoutingId id, unsigned offset, std::uint8_t *bytes, unsigned count);
    int write(RoutingId id, unsigned offset, const std::uint8_t *bytes, unsigned count);

    void forget(RoutingId id);

    // Returns true when the kernel has made the function anew since the first access after
    // forget().
    bool is_another(RoutingId id) const;

    const Accesses &accesses() const { return accesses_; }

private:
    // The kernel gives each new file another inode number.
    struct Identity {
        dev_t device;
        ino_t inode;

        bool operator==(const Identity &) const = default;
    };
    struct File {
        Descriptor descriptor;
        Identity identity;
        int write_error;  // why it could not be opened for writing
    };

    std::string path(RoutingId id) const { return sysfs_.file(id, "config"); }
    int open_file(RoutingId id, File *&file);
    int open_again(RoutingId id, File *&file);
    int open_anew(RoutingId id, File &file);
    Descriptor open_name(const std::string &name, int flags);
    void close_first();

    const Sysfs &sysfs_;
    const Mode mode_;
    const std::size_t most_open_;
    std::map<RoutingId, File> files_;
    std::deque<RoutingId> open_;  // in the order of their opening
    Accesses accesses_;
};

}  // namespace host
