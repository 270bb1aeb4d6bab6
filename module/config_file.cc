// feature_file/line.h tells how a line is read. Lines with an unknown keyword or without a value
// are reported, other lines are silently passed over; nothing ends the parse before the end of the
// file.
//
// Limit: if another process truncates the file during the parse, reading the mapping raises SIGBUS
// and the process ends, as with every mapped file.
#include "module/config_file.h"

#include <alloca.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "feature_file/line.h"
#include "feature_file/value_text.h"
#include "module/base/feature.h"
#include "module/base/log.h"
#include "module/stack_room.h"
#include "platform/config_text.h"

namespace enable_features {

namespace {

struct file_guard {
    explicit file_guard(int descriptor) : fd(descriptor) {}
    ~file_guard() {
        if (fd >= 0)
            close(fd);
    }
    file_guard(const file_guard &) = delete;
    file_guard &operator=(const file_guard &) = delete;

    int fd;
};

// Maps the whole file, read only. The host's functions stop at a zero byte, so one must stand
// behind the last byte. The mapping is therefore one page longer than the file, with an anonymous
// page over its end: that page stays zero even if another process appends to the file and so fills
// the rest of its last page.
struct map_guard {
    map_guard(int fd, std::size_t file_size) : size(file_size) {
        if (size == 0)
            return;
        const std::size_t page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        const std::size_t file_pages = (size + page - 1) / page * page;
        room = mmap(nullptr, file_pages + page, PROT_READ, MAP_PRIVATE, fd, 0);
        if (room == MAP_FAILED)
            return;
        void *behind = static_cast<char *>(room) + file_pages;
        mapped = mmap(behind, page, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0) !=
                 MAP_FAILED;
        // After a failed MAP_FIXED the kernel may have unmapped the last page, and another thread
        // may have taken it. Only the pages before it are surely ours: unmap those.
        room_size = mapped ? file_pages + page : file_pages;
    }
    ~map_guard() {
        if (room != MAP_FAILED)
            munmap(room, room_size);
    }
    map_guard(const map_guard &) = delete;
    map_guard &operator=(const map_guard &) = delete;

    const char *first() const { return static_cast<const char *>(room); }
    const char *last() const { return first() + size - 1; }

    std::size_t size;
    std::size_t room_size = 0;
    void *room = MAP_FAILED;
    bool mapped = false;
};

// Returns true when the stack has room for a copy of `length` characters and a zero byte, rounded
// up to a multiple of 8, and 128 bytes more.
bool room_for_copy(const char *floor, std::uint32_t length) {
    const std::size_t size = (std::size_t{length} + 1 + 7) / 8 * 8;
    return __stackavail(floor) > size + 128;
}

char *copy_token(void *room, token_t token) {
    char *copy = static_cast<char *>(std::memcpy(room, token.text, token.length));
    copy[token.length] = '\0';
    return copy;
}

// This text replaces a token without room. It is written anew for each token, because parsers may
// write to the text that they are given.
constexpr char NO_ROOM[] = "MAKE_TMP_STRING alloca() failed";

char *renew_no_room(char *text) {
    return static_cast<char *>(std::memcpy(text, NO_ROOM, sizeof NO_ROOM));
}

// Copies the token into the calling function's stack frame, or gives `no_room`. This is a macro,
// because memory of alloca lives as long as the function that called it. It uses that function's
// variables `copy_room`, because alloca must not stand in a list of arguments, and `floor`, the
// lowest address of the stack.
#define MAKE_TMP_STRING(token)                                                                     \
    (room_for_copy(floor, (token).length)                                                          \
         ? (copy_room = alloca(std::size_t{(token).length} + 1), copy_token(copy_room, token))     \
         : renew_no_room(no_room))

// The copies of all lines stay on the stack until the last line has been parsed, because a value
// that a parser was given must live until then.
void parse_lines(const char *first, const char *last) {
    char no_room[sizeof NO_ROOM];
    const char *floor = stack_floor();
    void *copy_room = nullptr;
    const char *line = skip_comment(first);
    const char *eol = nullptr;
    for (; (eol = find_eol(line, last)) != nullptr; line = line_after(eol, last)) {
        const char *equals = find_token('=', line, eol);
        const token_t keyword_token = keyword_before(line, equals);
        if (keyword_token.text == nullptr)
            continue;
        const char *keyword = MAKE_TMP_STRING(keyword_token);
        const feature_row index = row_of(keyword);
        if (index == num_features) {
            LOG_WARNING(0, "Unknown feature parameter '%s', ignoring", keyword);
            continue;
        }
        feature_t *row = &feature_list[index];
        const token_t value_token = value_behind(
            equals, eol,
            row->valid_param_char != nullptr ? row->valid_param_char : valid_param_val_char);
        if (value_token.text == nullptr) {
            LOG_WARNING(0, "No feature parameter for '%s', ignoring", keyword);
            continue;
        }
        if (row->param_parse == nullptr)
            continue;
        char *value = MAKE_TMP_STRING(value_token);
        row->param_parse(keyword, value, row);
    }
}

}  // namespace

pci_err_t parse_feature_config(const char *file) {
    if (file == nullptr || *file == '\0') {
        LOG_ERROR(0, "No config file parameter provided");
        return PCI_ERR_INVALID;
    }
    if (access(file, R_OK) != 0) {
        LOG_ERROR(0, "Unable to access file '%s' for parsing, %s", file, std::strerror(errno));
        return PCI_ERR_FILE_UNREADABLE;
    }
    // O_NONBLOCK keeps a FIFO without a writer from hanging the start-up: its size is 0, so it is
    // passed over like an empty file.
    const file_guard source(open(file, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status;
    if (source.fd < 0 || fstat(source.fd, &status) != 0)
        return PCI_OK;
    const map_guard map(source.fd, static_cast<std::size_t>(status.st_size));
    if (!map.mapped)
        return PCI_OK;

    LOG_INFO(0, "++ Feature Config file '%s' parse start ++", file);
    parse_lines(map.first(), map.last());
    LOG_INFO(0, "++ Feature Config file '%s' parse end ++", file);
    return PCI_OK;
}

}  // namespace enable_features
