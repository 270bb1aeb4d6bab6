#include "host/watch/control_socket.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>
#include <system_error>

#include "host/base/text.h"

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

// What refuses is left over from a server that was killed.
bool is_listened_to(const sockaddr_un &address) {
    const Descriptor trying = new_socket();
    return connect(trying.number(), generic(address), sizeof address) == 0 || errno != ECONNREFUSED;
}

void remove_left_over(const std::filesystem::path &path, const sockaddr_un &address) {
    std::error_code none;
    if (std::filesystem::is_socket(path, none)) {
        if (is_listened_to(address))
            refuse(path, "another server listens there");
        unlink(path.c_str());
    } else if (std::filesystem::exists(std::filesystem::symlink_status(path, none))) {
        refuse(path, "is there already, and is no socket");
    }
}

}  // namespace

ControlSocket::ControlSocket(std::filesystem::path path) : path_(std::move(path)) {
    const sockaddr_un address = address_of(path_);
    remove_left_over(path_, address);
    Descriptor listening = new_socket();
    const mode_t former = umask(0177);
    const bool bound = bind(listening.number(), generic(address), sizeof address) == 0;
    umask(former);
    if (!bound || listen(listening.number(), SOMAXCONN) != 0)
        refuse_for_errno(path_);
    listening_ = std::move(listening);
}

ControlSocket::~ControlSocket() {
    unlink(path_.c_str());
}

Descriptor ControlSocket::accept() const {
    return Descriptor(accept4(descriptor(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
}

}  // namespace host
