#include "pflash.h"

#include <errno.h>

#include <glib.h>

#include "fileio.h"
#include "paths.h"
#include "record.h"
#include "slots.h"

/* 1 when fd already holds the record, 0 when not, or a PFLASH_ERR_* code. */
static int holds_record(int fd, const struct pf_record *record)
{
    char *data = NULL;
    uint32_t len = 0;
    int rc = pf_read_file(fd, &data, &len);
    if (rc == PFLASH_ERR_TOO_LARGE) {
        return 0;
    }
    if (rc != PFLASH_OK) {
        return rc;
    }
    rc = pf_record_matches(record, data, len) ? 1 : 0;
    g_free(data);
    return rc;
}

static int restore_from(int fd, const struct pf_record *record)
{
    int rc = pf_check_regular(fd) == 0 ? holds_record(fd, record) : PFLASH_ERR_IO;
    if (rc == 0) {
        return pf_replace_content(fd, record->data, record->len);
    }
    if (rc < 0) {
        return rc;
    }
    /* Equal bytes may still sit only in the page cache after a crashed writer. */
    return pf_fsync(fd) == 0 ? PFLASH_OK : PFLASH_ERR_IO;
}

static int restore_visible(const struct pf_paths *paths, const struct pf_record *record)
{
    bool created = false;
    const int fd = pf_open_or_create(paths->visible, O_RDWR | PF_FILE_FLAGS, 0644, &created);
    int rc;

    if (fd < 0) {
        return PFLASH_ERR_IO;
    }
    rc = restore_from(fd, record);
    if (rc == PFLASH_OK && created && pf_sync_dir(paths->dir) != 0) {
        rc = PFLASH_ERR_IO;
    }
    pf_close_quiet(fd);
    return rc;
}

PFLASH_API int pflash_recover_file(const char *path)
{
    struct pf_paths paths;
    struct pf_record newest;
    int index;
    int rc;

    if (pf_paths_init(&paths, path) != 0) {
        return PFLASH_ERR_INVALID_ARG;
    }
    rc = pf_slots_newest(&paths, &newest, &index);
    if (rc == PF_RECORD_NONE) {
        errno = ENOENT;
        rc = PFLASH_ERR_NOTHING_TO_RECOVER;
    } else if (rc == PF_RECORD_VALID) {
        rc = restore_visible(&paths, &newest);
    }
    pf_record_clear(&newest);
    pf_paths_clear(&paths);
    return rc;
}
