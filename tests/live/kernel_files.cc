// Accesses to an open file end as those to the kernel's files do: with ENODEV once its function has
// been removed, and writes with EPERM where forbid_writes() stands for a kernel that is locked
// down.
#include <sys/stat.h>
#include <sys/types.h>

#include <cerrno>

static bool fails(int fd, bool is_write) {
    struct stat status {};
    const bool is_gone = fstat(fd, &status) != 0 || status.st_nlink == 0;
    errno = is_gone ? ENODEV : EPERM;
    return is_gone || (is_write && (status.st_mode & S_ISVTX) != 0);
}

extern "C" {
ssize_t __real_pread(int, void *, std::size_t, off_t);
ssize_t __wrap_pread(int fd, void *bytes, std::size_t count, off_t offset) {
    return fails(fd, false) ? -1 : __real_pread(fd, bytes, count, offset);
}
ssize_t __real_pwrite(int, const void *, std::size_t, off_t);
ssize_t __wrap_pwrite(int fd, const void *bytes, std::size_t count, off_t offset) {
    return fails(fd, true) ? -1 : __real_pwrite(fd, bytes, count, offset);
}
}
