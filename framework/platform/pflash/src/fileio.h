#ifndef PFLASH_FILEIO_H
#define PFLASH_FILEIO_H

#include <fcntl.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

/* Every file of the driver: no symbolic links, and a FIFO planted at a path
 * must not block the open (regular files ignore O_NONBLOCK). */
#define PF_FILE_FLAGS (O_NOFOLLOW | O_NONBLOCK)

/* open(2) with O_CLOEXEC added, retried on EINTR. */
int pf_open(const char *path, int flags, mode_t mode);

/* Opens an existing file, or creates it exclusively with mode when it is
 * missing; *created tells which. */
int pf_open_or_create(const char *path, int flags, mode_t mode, bool *created);

/* close(2) that keeps errno, for descriptors whose close cannot lose data. */
void pf_close_quiet(int fd);

/* 0 when fd is a regular file, -1 with errno (EINVAL for other kinds). */
int pf_check_regular(int fd);

/* Reads up to len bytes at off, stopping early only at end of file. */
int pf_pread_full(int fd, void *buf, size_t len, off_t off, size_t *got);

/* Writes all len bytes at off. */
int pf_pwrite_full(int fd, const void *buf, size_t len, off_t off);

int pf_fsync(int fd);
int pf_sync_dir(const char *dir);

/* g_try_malloc of len bytes plus a NUL; NULL with errno EFBIG or ENOMEM. */
char *pf_alloc_content(uint64_t len);

/* Whole content of fd as a pf_alloc_content buffer; a PFLASH_ERR_* code. */
int pf_read_file(int fd, char **data, uint32_t *len);

/* Makes fd hold exactly buf/len, durably; a PFLASH_ERR_* code. */
int pf_replace_content(int fd, const void *buf, uint32_t len);

#endif
