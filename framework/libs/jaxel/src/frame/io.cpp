#include "frame/io.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <glib.h>

#include "frame/log.h"
#include "frame/path.h"
#include "kel.h"
#include "pflash.h"

namespace jx {
namespace {

int open_real(const char *path, int flags, mode_t mode) { return ::open(path, flags, mode); }

// A failed call of a durable step: "<call>(<name>) failed:err[<errno>:<text>]."
void log_sync_failure(const char *source, int line, const char *call, const char *name) noexcept {
    const int e = errno;
    log_line(source, line, "%s(%s) failed:err[%d:%s].", call, name, e, g_strerror(e));
}

const Io kRealIo = {
    open_real,      open_stream_nofollow,
    ::fwrite,       ::fputc,
    ::fflush,       ::fsync,
    ::ftruncate,    ::unlink,
    ::chmod,        ::fchmod,
    ::chown,        ::fchown,
    ::flock,        kel_system_s,
    kel_task_delay, pflash_open,
    pflash_write,   pflash_get_contents,
    pflash_close,   pflash_recover_file,
    ::syslog,       ::fclose,
    ::close,        ::fseeko,
    ::write,        ::pwrite,
    ::rename,       ::mkdir,
};

Io g_io = kRealIo;

// fopen mode letters to open(2) flags; 'b' and anything after the first
// letter other than '+' change nothing on Linux.
int flags_for_mode(const char *mode) {
    const bool plus = std::strchr(mode, '+') != nullptr;
    switch (mode[0]) {
    case 'r': return plus ? O_RDWR : O_RDONLY;
    case 'w': return (plus ? O_RDWR : O_WRONLY) | O_CREAT | O_TRUNC;
    case 'a': return (plus ? O_RDWR : O_WRONLY) | O_CREAT | O_APPEND;
    default: return -1;
    }
}

}  // namespace

Io &io() noexcept { return g_io; }
const Io &real_io() noexcept { return kRealIo; }

FILE *open_stream_nofollow(const char *path, const char *mode) noexcept {
    if (path == nullptr || mode == nullptr) {
        errno = EINVAL;
        return nullptr;
    }
    const int flags = flags_for_mode(mode);
    if (flags < 0) {
        errno = EINVAL;
        return nullptr;
    }
    // Without blocking on a FIFO; only a regular file becomes a stream.
    // Emptied only once it is known to be the library's own regular file.
    const int fd = ::open(path, (flags & ~O_TRUNC) | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK, 0666);
    if (fd < 0) {
        return nullptr;
    }
    struct stat st {};
    // A second hard link could be a file outside the library's directories.
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || st.st_nlink > 1 ||
        ::fcntl(fd, F_SETFL, flags) != 0 || ((flags & O_TRUNC) != 0 && ::ftruncate(fd, 0) != 0)) {
        ::close(fd);  // inside the real call that the seam's fopen names
        errno = ENXIO;
        return nullptr;
    }
    FILE *stream = ::fdopen(fd, mode);
    if (stream == nullptr) {
        const int saved = errno;
        ::close(fd);  // inside the real call that the seam's fopen names
        errno = saved;
    }
    return stream;
}

int sync_parent_directory(const char *path) noexcept {
    const Path dir = parent_of(path);
    const int fd = io().open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0);
    if (fd < 0) {
        JX_LOG_ERRNO("open directory", dir.c_str());
        return -1;
    }
    const int rc = io().fsync(fd);
    if (rc != 0) {
        JX_LOG_ERRNO("fsync directory", dir.c_str());
    }
    (void)io().close(fd);
    return rc;
}

int flush_and_sync(const char *source, int line, FILE *stream, const char *name, SyncCalls calls,
                   bool stop_at_first) noexcept {
    int rc = 0;
    if (io().fflush(stream) != 0) {
        log_sync_failure(source, line, calls.flush, name);
        if (stop_at_first) {
            return -1;
        }
        rc = -1;
    }
    if (calls.sync != nullptr && io().fsync(fileno(stream)) != 0) {
        log_sync_failure(source, line, calls.sync, name);
        rc = -1;
    }
    return rc;
}

}  // namespace jx
