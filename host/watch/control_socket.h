// The Unix socket at which a server that stays accepts connections.
#pragma once

#include <sys/stat.h>

#include <filesystem>

#include "host/base/descriptor.h"

namespace host {

class ControlSocket {
public:
    // Listens at `path`, which only its owner may open. Replaces a socket that a killed server left
    // there. Throws InputError.
    explicit ControlSocket(std::filesystem::path path);
    ~ControlSocket();
    ControlSocket(const ControlSocket &) = delete;
    ControlSocket &operator=(const ControlSocket &) = delete;

    int descriptor() const { return listening_.number(); }  // becomes readable

    // Returns the next waiting connection; empty, with errno, when none waits or it cannot be
    // accepted.
    Descriptor accept() const;

private:
    std::filesystem::path path_;
    struct stat made_ {};
    Descriptor listening_;
};

}  // namespace host
