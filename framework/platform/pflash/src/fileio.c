#include "fileio.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <glib.h>

#include "pflash.h"

/* Keeps single transfers well inside ssize_t on 32-bit targets. */
#define PF_CHUNK ((size_t)1 << 30)

int pf_open(const char *path, int flags, mode_t mode)
{
    int fd;
    do {
        fd = open(path, flags | O_CLOEXEC, mode);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

int pf_open_or_create(const char *path, int flags, mode_t mode, bool *created)
{
    int attempt;
    *created = false;
    /* Bounded: another process may remove or create the file between tries. */
    for (attempt = 0; attempt < 4; attempt++) {
        int fd = pf_open(path, flags, 0);
        if (fd >= 0 || errno != ENOENT) {
            return fd;
        }
        fd = pf_open(path, flags | O_CREAT | O_EXCL, mode);
        if (fd >= 0) {
            *created = true;
            return fd;
        }
        if (errno != EEXIST) {
            return -1;
        }
    }
    errno = EAGAIN;
    return -1;
}

void pf_close_quiet(int fd)
{
    const int saved = errno;
    (void)close(fd);
    errno = saved;
}

int pf_check_regular(int fd)
{
    struct stat st;
    if (fstat(fd, &st) != 0) {
        return -1;
    }
    if (!S_ISREG(st.st_mode)) {
        errno = EINVAL;
        return -1;
    }
    return 0;
}

int pf_pread_full(int fd, void *buf, size_t len, off_t off, size_t *got)
{
    size_t done = 0;
    while (done < len) {
        const size_t want = len - done < PF_CHUNK ? len - done : PF_CHUNK;
        const ssize_t n = pread(fd, (char *)buf + done, want, off + (off_t)done);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0) {
            return -1;
        }
        if (n == 0) {
            break;
        }
        done += (size_t)n;
    }
    *got = done;
    return 0;
}

int pf_pwrite_full(int fd, const void *buf, size_t len, off_t off)
{
    size_t done = 0;
    while (done < len) {
        const size_t want = len - done < PF_CHUNK ? len - done : PF_CHUNK;
        const ssize_t n = pwrite(fd, (const char *)buf + done, want, off + (off_t)done);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0) {
            return -1;
        }
        if (n == 0) {
            errno = EIO;
            return -1;
        }
        done += (size_t)n;
    }
    return 0;
}

int pf_fsync(int fd)
{
    int rc;
    do {
        rc = fsync(fd);
    } while (rc != 0 && errno == EINTR);
    return rc;
}

int pf_sync_dir(const char *dir)
{
    /* The directory itself may legitimately be a symbolic link on the target. */
    const int fd = pf_open(dir, O_RDONLY | O_DIRECTORY, 0);
    int rc;
    if (fd < 0) {
        return -1;
    }
    rc = pf_fsync(fd);
    pf_close_quiet(fd);
    return rc;
}

char *pf_alloc_content(uint64_t len)
{
    char *buf;
    /* The NUL must fit in size_t as well as in the 32-bit length. */
    if (len >= UINT32_MAX || len >= (uint64_t)SIZE_MAX) {
        errno = EFBIG;
        return NULL;
    }
    buf = g_try_malloc((gsize)len + 1);
    if (buf == NULL) {
        errno = ENOMEM;
    }
    return buf;
}

int pf_read_file(int fd, char **data, uint32_t *len)
{
    struct stat st;
    size_t got = 0;
    char *buf;

    if (fstat(fd, &st) != 0) {
        return PFLASH_ERR_IO;
    }
    buf = pf_alloc_content((uint64_t)st.st_size);
    if (buf == NULL) {
        return errno == EFBIG ? PFLASH_ERR_TOO_LARGE : PFLASH_ERR_NO_MEMORY;
    }
    if (pf_pread_full(fd, buf, (size_t)st.st_size, 0, &got) != 0) {
        g_free(buf);
        return PFLASH_ERR_IO;
    }
    buf[got] = '\0';
    *data = buf;
    *len = (uint32_t)got;
    return PFLASH_OK;
}

int pf_replace_content(int fd, const void *buf, uint32_t len)
{
    int rc;
    /* New bytes first, then the cut: every state in between is a mix that the
     * checksum of the newest record tells apart from the real content. */
    if (pf_pwrite_full(fd, buf, len, 0) != 0) {
        return PFLASH_ERR_IO;
    }
    do {
        rc = ftruncate(fd, (off_t)len);
    } while (rc != 0 && errno == EINTR);
    if (rc != 0 || pf_fsync(fd) != 0) {
        return PFLASH_ERR_IO;
    }
    return PFLASH_OK;
}
