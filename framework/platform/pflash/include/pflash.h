#ifndef PFLASH_H
#define PFLASH_H

#include <stdint.h>

#if defined(__GNUC__)
#define PFLASH_API __attribute__((visibility("default")))
#else
#define PFLASH_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Persistent flash files. The file at the path holds the content as a plain
 * file; beside it the driver keeps two record slots, ".<name>.pf0" and
 * ".<name>.pf1", each holding a sequence-numbered, checksummed copy. A write
 * goes to the slot not holding the newest valid record first, then to the file,
 * each made durable before the next step, so a write cut short at any point
 * leaves a valid record that pflash_recover_file puts back into the file.
 *
 * Symbolic links at the path or at a slot are never followed. Writers of one
 * path must be serialised by the caller.
 */

#define PFLASH_OK 0
#define PFLASH_ERR_INVALID_ARG (-3001)        /* errno EINVAL */
#define PFLASH_ERR_IO (-3002)                 /* errno from the failing call */
#define PFLASH_ERR_NO_MEMORY (-3003)          /* errno ENOMEM */
#define PFLASH_ERR_TOO_LARGE (-3004)          /* errno EFBIG: over 4 GiB - 2 */
#define PFLASH_ERR_NOTHING_TO_RECOVER (-3007) /* errno ENOENT: no valid record */
#define PFLASH_ERR_DAMAGED (-3008)            /* errno EBADMSG: run recovery */

/*
 * Opens the file at path with the open(2) access flags in flags; O_CREAT
 * creates a missing file (mode 0644 less the umask), O_EXCL is honoured,
 * O_TRUNC and O_APPEND are ignored. Without O_CREAT, a missing file whose
 * record still exists opens (reads then report PFLASH_ERR_DAMAGED until
 * recovery). Returns NULL with errno set on failure: ENOENT when neither the
 * file nor a record exists, ELOOP for a symbolic link.
 */
PFLASH_API void *pflash_open(const char *path, int flags);

/* Replaces the whole content with len bytes at buf (buf may be NULL when len is
 * 0). Durable when it returns 0; a PFLASH_ERR_* code otherwise. */
PFLASH_API int pflash_write(void *handle, const void *buf, uint32_t len);

/*
 * Reads the whole content into a g_malloc'd buffer of *len bytes plus a NUL not
 * counted in *len, to be released with g_free. Returns PFLASH_ERR_DAMAGED when
 * the file disagrees with the newest valid record (a torn write); a file that
 * has no record at all is returned as it is. On failure *buf is NULL.
 */
PFLASH_API int pflash_get_contents(void *handle, char **buf, uint32_t *len);

/* Releases the handle; NULL is ignored. */
PFLASH_API void pflash_close(void *handle);

/*
 * Makes the file at path hold the newest valid record, durably. 0 when it was
 * repaired or already intact, PFLASH_ERR_NOTHING_TO_RECOVER when there is no
 * valid record, another PFLASH_ERR_* code otherwise.
 */
PFLASH_API int pflash_recover_file(const char *path);

#ifdef __cplusplus
}
#endif

#endif
