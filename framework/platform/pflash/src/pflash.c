#include "pflash.h"

#include <errno.h>
#include <sys/stat.h>

#include <glib.h>

#include "fileio.h"
#include "paths.h"
#include "record.h"
#include "slots.h"

#define PF_NEW_FILE_MODE 0644

struct pflash_handle {
    struct pf_paths paths;
    int flags; /* the caller's access flags and the ones passed on to open(2) */
    int fd;    /* -1 while the file is missing but a record of it exists */
};

/* The driver decides where and how much it writes. */
static int open_flags(int flags)
{
    return (flags & ~(O_CREAT | O_EXCL | O_TRUNC | O_APPEND)) | PF_FILE_FLAGS;
}

static int open_visible(const struct pflash_handle *h, int flags, bool *created)
{
    *created = false;
    if ((flags & O_CREAT) == 0) {
        return pf_open(h->paths.visible, h->flags, 0);
    }
    if ((flags & O_EXCL) != 0) {
        const int fd = pf_open(h->paths.visible, h->flags | O_CREAT | O_EXCL, PF_NEW_FILE_MODE);
        *created = fd >= 0;
        return fd;
    }
    return pf_open_or_create(h->paths.visible, h->flags, PF_NEW_FILE_MODE, created);
}

/* Opens the file into h->fd; a newly created file is made durable at once. */
static int attach_visible(struct pflash_handle *h, int flags)
{
    bool created = false;
    int fd = open_visible(h, flags, &created);
    if (fd < 0) {
        return -1;
    }
    if (pf_check_regular(fd) != 0 || (created && pf_sync_dir(h->paths.dir) != 0)) {
        pf_close_quiet(fd);
        return -1;
    }
    h->fd = fd;
    return 0;
}

static int record_exists(const struct pf_paths *paths)
{
    struct pf_record newest;
    int index;
    const int rc = pf_slots_newest(paths, &newest, &index);
    pf_record_clear(&newest);
    return rc;
}

static void free_handle(struct pflash_handle *h)
{
    const int saved = errno;
    if (h->fd >= 0) {
        pf_close_quiet(h->fd);
    }
    pf_paths_clear(&h->paths);
    g_free(h);
    errno = saved;
}

PFLASH_API void *pflash_open(const char *path, int flags)
{
    struct pflash_handle *h = g_try_new0(struct pflash_handle, 1);
    if (h == NULL) {
        errno = ENOMEM;
        return NULL;
    }
    h->fd = -1;
    h->flags = open_flags(flags);
    if (pf_paths_init(&h->paths, path) != 0) {
        free_handle(h);
        return NULL;
    }
    if (attach_visible(h, flags) == 0) {
        return h;
    }
    if (errno == ENOENT) {
        const int found = record_exists(&h->paths);
        if (found == PF_RECORD_VALID) {
            return h;
        }
        if (found == PF_RECORD_NONE) {
            errno = ENOENT;
        }
    }
    free_handle(h);
    return NULL;
}

PFLASH_API void pflash_close(void *handle)
{
    if (handle != NULL) {
        free_handle(handle);
    }
}

static int file_mode(int fd, mode_t *mode)
{
    struct stat st;
    if (fstat(fd, &st) != 0) {
        return -1;
    }
    *mode = st.st_mode & 0777;
    return 0;
}

PFLASH_API int pflash_write(void *handle, const void *buf, uint32_t len)
{
    struct pflash_handle *h = handle;
    mode_t mode = PF_NEW_FILE_MODE;
    int rc;

    if (h == NULL || (buf == NULL && len != 0)) {
        errno = EINVAL;
        return PFLASH_ERR_INVALID_ARG;
    }
    if ((h->flags & O_ACCMODE) == O_RDONLY) {
        errno = EBADF;
        return PFLASH_ERR_IO;
    }
    /* The file exists before its record changes, so a cut in between reads as
     * damage that recovery repairs. */
    if (h->fd < 0 && attach_visible(h, O_CREAT) != 0) {
        return PFLASH_ERR_IO;
    }
    if (file_mode(h->fd, &mode) != 0) {
        return PFLASH_ERR_IO;
    }
    rc = pf_slots_append(&h->paths, buf, len, mode);
    return rc != PFLASH_OK ? rc : pf_replace_content(h->fd, buf, len);
}

/* The file has gone but its record remains, or it came back since. */
static int read_missing(struct pflash_handle *h, int found, char **data, uint32_t *len)
{
    if (attach_visible(h, 0) == 0) {
        return pf_read_file(h->fd, data, len);
    }
    if (errno == ENOENT && found == PF_RECORD_VALID) {
        errno = EBADMSG;
        return PFLASH_ERR_DAMAGED;
    }
    return PFLASH_ERR_IO;
}

PFLASH_API int pflash_get_contents(void *handle, char **buf, uint32_t *len)
{
    struct pflash_handle *h = handle;
    struct pf_record newest;
    char *data = NULL;
    uint32_t n = 0;
    int index;
    int found;
    int rc;

    if (buf != NULL) {
        *buf = NULL;
    }
    if (len != NULL) {
        *len = 0;
    }
    if (h == NULL || buf == NULL || len == NULL) {
        errno = EINVAL;
        return PFLASH_ERR_INVALID_ARG;
    }
    found = pf_slots_newest(&h->paths, &newest, &index);
    if (found < 0) {
        return found;
    }
    rc = h->fd >= 0 ? pf_read_file(h->fd, &data, &n) : read_missing(h, found, &data, &n);
    if (rc == PFLASH_OK && found == PF_RECORD_VALID && !pf_record_matches(&newest, data, n)) {
        g_free(data);
        errno = EBADMSG;
        rc = PFLASH_ERR_DAMAGED;
    }
    pf_record_clear(&newest);
    if (rc == PFLASH_OK) {
        *buf = data;
        *len = n;
    }
    return rc;
}
