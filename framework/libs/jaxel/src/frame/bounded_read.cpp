#include "frame/bounded_read.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "frame/locations.h"
#include "frame/name_check.h"
#include "frame/path.h"
#include "frame/raii.h"

namespace jx {
namespace {

// Takes the message; false, for the callers' return.
bool fail(GError **error, int code, gchar *message) {
    g_set_error_literal(error, G_FILE_ERROR, code, message);
    g_free(message);
    return false;
}

GPtr<gchar> shown(const char *path) { return GPtr<gchar>(g_filename_display_name(path)); }

// Reads from the start until `want` bytes are in or the file ends early; the
// descriptor's offset, which a stream may rely on, is left alone.
bool read_upto(int fd, gchar *buf, std::size_t want, std::size_t &got) {
    got = 0;
    while (got < want) {
        const ssize_t n = ::pread(fd, buf + got, want - got, static_cast<off_t>(got));
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return n == 0;
        }
        got += static_cast<std::size_t>(n);
    }
    return true;
}

}  // namespace

bool is_regular_file(const char *path) noexcept {
    struct stat st {};
    return ::lstat(path, &st) == 0 && S_ISREG(st.st_mode);
}

bool is_odd_node(const char *path) noexcept {
    struct stat st {};
    return ::lstat(path, &st) == 0 && (!S_ISREG(st.st_mode) || st.st_nlink > 1);
}

namespace {

GError *leads_out_error(const char *path) {
    return g_error_new(G_FILE_ERROR, G_FILE_ERROR_PERM, "“%s” leads out of %s", shown(path).get(),
                       kUlxDir);
}

int checked_regular(UniqueFd fd, const char *path, GError **error, off_t *size) noexcept {
    struct stat st {};
    if (!fd || ::fstat(fd.get(), &st) != 0) {
        return -1;
    }
    if (!S_ISREG(st.st_mode) || st.st_nlink > 1) {
        return fail(error, G_FILE_ERROR_FAILED,
                    g_strdup_printf("“%s” is not a regular file of one link", shown(path).get())),
               -1;
    }
    if (size != nullptr) {
        *size = st.st_size;
    }
    return fd.release();
}

}  // namespace

int open_regular(const char *path, GError **error, off_t *size) noexcept {
    if (leads_outside(path)) {
        g_propagate_error(error, leads_out_error(path));
        return -1;
    }
    return checked_regular(UniqueFd(::open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC)), path, error,
                           size);
}

int open_regular_for_update(const char *path, GError **error, off_t *size) noexcept {
    UniqueFd fd(checked_regular(
        UniqueFd(::open(path, O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC)), path, error, size));
    if (fd && opened_outside(fd.get(), path)) {
        g_propagate_error(error, leads_out_error(path));
        return -1;
    }
    return fd.release();
}

bool read_regular_fd(int fd, const char *path, std::size_t limit, gchar **data, std::size_t *len,
                     GError **error) noexcept {
    struct stat st {};
    if (::fstat(fd, &st) != 0) {
        st.st_size = 0;
    }
    const std::size_t want = std::min(static_cast<std::size_t>(st.st_size), limit);
    GPtr<gchar> buf(static_cast<gchar *>(g_try_malloc(want + 1)));
    if (!buf) {
        return fail(error, G_FILE_ERROR_NOMEM,
                    g_strdup_printf("Could not allocate memory for “%s”", shown(path).get()));
    }
    std::size_t got = 0;
    if (!read_regular_into(fd, path, buf.get(), want, got, error)) {
        return false;
    }
    buf.get()[got] = '\0';
    *len = got;
    *data = buf.release();
    return true;
}

bool read_regular_into(int fd, const char *path, gchar *buf, std::size_t want, std::size_t &got,
                       GError **error) noexcept {
    if (read_upto(fd, buf, want, got)) {
        return true;
    }
    const int e = errno;
    return fail(error, g_file_error_from_errno(e),
                g_strdup_printf("Error reading file “%s”: %s", shown(path).get(), g_strerror(e)));
}

int open_regular_reporting(const char *path, GError **error, off_t *size,
                           RegularOpener opener) noexcept {
    GError *refused = nullptr;
    const int fd = opener(path, &refused, size);
    if (fd < 0) {
        const int e = errno;
        if (refused != nullptr) {
            g_propagate_error(error, refused);
        } else {
            (void)fail(
                error, g_file_error_from_errno(e),
                g_strdup_printf("Failed to open file “%s”: %s", shown(path).get(), g_strerror(e)));
        }
    }
    return fd;
}

bool read_regular_file(const char *path, std::size_t limit, gchar **data, std::size_t *len,
                       GError **error) noexcept {
    const UniqueFd fd(open_regular_reporting(path, error));
    return fd && read_regular_fd(fd.get(), path, limit, data, len, error);
}

}  // namespace jx
