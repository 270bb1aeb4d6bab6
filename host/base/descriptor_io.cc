#include "host/base/descriptor_io.h"

#include <sys/mman.h>

#include <array>
#include <cerrno>
#include <system_error>

namespace host {

Descriptor require_descriptor(int number, const char *what) {
    if (number < 0)
        throw std::system_error(errno, std::generic_category(), what);
    return Descriptor(number);
}

Descriptor memory_file() {
    return require_descriptor(memfd_create("hoplar", MFD_CLOEXEC), "memfd_create");
}

bool write_whole(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = write(descriptor, text.data(), text.size());
        if (written < 0 && errno != EINTR)
            return false;
        if (written > 0)
            text.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

std::string read_whole(int descriptor) {
    std::string text;
    std::array<char, 4096> piece{};
    for (;;) {
        const ssize_t length = read(descriptor, piece.data(), piece.size());
        if (length == 0 || (length < 0 && errno != EINTR))
            return text;
        if (length > 0)
            text.append(piece.data(), static_cast<std::size_t>(length));
    }
}

std::string read_from_start(int descriptor) {
    lseek(descriptor, 0, SEEK_SET);
    return read_whole(descriptor);
}

}  // namespace host
