#include "host/watch/control_socket.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <system_error>
#include <thread>

#include "host/base/input.h"

namespace host {
namespace {

[[noreturn]] void refuse(const std::filesystem::path &path, const std::string &why) {
    throw InputError("--control: " + path.string() + ": " + why);
}

[[noreturn]] void refuse_for_errno(const std::filesystem::path &path) {
    refuse(path, std::generic_category().message(errno));
}

sockaddr_un address_of(const std::filesystem::path &path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string name = path.string();
    if (name.empty() || name.size() >= sizeof address.sun_path)
        refuse(path, "a socket's name has 1 to " + std::to_string(sizeof address.sun_path - 1) +
                         " characters");
    std::memcpy(address.sun_path, name.data(), name.size());
    return address;
}

const sockaddr *generic(const sockaddr_un &address) {
    return reinterpret_cast<const sockaddr *>(&address);
}

Descriptor new_socket() {
    return Descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

// Locks the folder, so that of servers that start or end at the same time none removes the socket
// that another one has just made. Other programs may hold the lock: after a second the result is
// empty, with errno set.
Descriptor lock_folder_of(const std::filesystem::path &path) {
    const std::filesystem::path folder = path.parent_path();
    Descriptor locked(
        open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    for (int tries = 0; locked && tries < 100; ++tries) {
        if (flock(locked.number(), LOCK_EX | LOCK_NB) == 0)
            return locked;
        if (errno != EWOULDBLOCK)
            break;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return {};
}

// The caller holds the lock. A socket that refuses connections is left over from a killed server.
void remove_left_over(const std::filesystem::path &path, const sockaddr_un &address) {
    struct stat there {};
    if (lstat(path.c_str(), &there) != 0)
        return;
    if (!S_ISSOCK(there.st_mode))
        refuse(path, "is there already, and is no socket");
    const Descriptor trying = new_socket();
    if (connect(trying.number(), generic(address), sizeof address) == 0 || errno == EAGAIN)
        refuse(path, "another server listens there");
    if (errno != ECONNREFUSED)
        refuse_for_errno(path);
    unlink(path.c_str());
}

}  // namespace

ControlSocket::ControlSocket(std::filesystem::path path) : path_(std::move(path)) {
    const sockaddr_un address = address_of(path_);
    const Descriptor locked = lock_folder_of(path_);
    if (!locked)
        refuse_for_errno(path_);
    remove_left_over(path_, address);
    Descriptor listening = new_socket();
    const mode_t former = umask(0177);
    const bool bound = bind(listening.number(), generic(address), sizeof address) == 0;
    umask(former);
    if (!bound || listen(listening.number(), SOMAXCONN) != 0 || lstat(path_.c_str(), &made_) != 0)
        refuse_for_errno(path_);
    listening_ = std::move(listening);
}

// The name is removed before the socket is closed, because no other server takes it while this one
// listens. Another user may have removed it, and another server may have made its own there, so it
// is compared first.
ControlSocket::~ControlSocket() {
    const Descriptor locked = lock_folder_of(path_);
    struct stat there {};
    if (lstat(path_.c_str(), &there) == 0 && there.st_dev == made_.st_dev &&
        there.st_ino == made_.st_ino)
        unlink(path_.c_str());
}

Descriptor ControlSocket::accept() const {
    return Descriptor(accept4(descriptor(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
}

}  // namespace host
