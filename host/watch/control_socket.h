// The Unix socket at which a server that stays takes connections.
#pragma once

#include <sys/stat.h>

#include <filesystem>

#include "host/base/descriptor.h"

namespace host {

class ControlSocket {
public:
    // Listens at `path`, which only its owner may open. What a server that was killed left there is
    // replaced. Throws InputError.
    explicit ControlSocket(std::filesystem::path path);
    ~ControlSocket();
    ControlSocket(const ControlSocket &) = delete;
    ControlSocket &operator=(const ControlSocket &) = delete;

    int descriptor() const { return listening_.number(); }  // becomes readable

    // The next connection that waits; none, with errno, when none does or it cannot be taken.
    Descriptor accept() const;

private:
    std::filesystem::path path_;
    struct stat made_ {};
    Descriptor listening_;
};

}  // namespace host
