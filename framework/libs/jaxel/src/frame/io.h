// The one seam under every call through which the library changes, syncs,
// truncates, closes, removes, locks or runs anything. Production code only reads the table;
// tests swap entries to fail the Nth call or to crash at the Nth durable step.
#pragma once

#include <cstdint>
#include <cstdio>
#include <sys/types.h>

namespace jx {

struct Io {
    int (*open)(const char *path, int flags, mode_t mode);
    FILE *(*fopen)(const char *path, const char *mode);
    size_t (*fwrite)(const void *data, size_t size, size_t n, FILE *stream);
    int (*fputc)(int c, FILE *stream);
    int (*fflush)(FILE *stream);
    int (*fsync)(int fd);
    int (*ftruncate)(int fd, off_t length);
    int (*unlink)(const char *path);
    int (*chmod)(const char *path, mode_t mode);
    int (*fchmod)(int fd, mode_t mode);
    int (*chown)(const char *path, uid_t owner, gid_t group);
    int (*fchown)(int fd, uid_t owner, gid_t group);
    int (*flock)(int fd, int operation);
    int (*run)(const char *program, char *const argv[]);
    void (*delay)(uint32_t units);
    void *(*pflash_open)(const char *path, int flags);
    int (*pflash_write)(void *handle, const void *buf, uint32_t len);
    int (*pflash_get_contents)(void *handle, char **buf, uint32_t *len);
    void (*pflash_close)(void *handle);
    int (*pflash_recover_file)(const char *path);
    void (*syslog)(int priority, const char *format, ...) __attribute__((format(printf, 2, 3)));
    int (*fclose)(FILE *stream);
    int (*close)(int fd);
    // Seeking flushes a stream's pending output, so it is a durable step too.
    int (*fseek)(FILE *stream, off_t offset, int whence);
    // Descriptor-level writes and directory calls of the redo records.
    ssize_t (*write)(int fd, const void *data, size_t len);
    ssize_t (*pwrite)(int fd, const void *data, size_t len, off_t offset);
    int (*rename)(const char *from, const char *to);
    int (*mkdir)(const char *path, mode_t mode);
};

// The live table; it starts as the real calls.
Io &io() noexcept;
// The real calls, for test doubles that forward to them.
const Io &real_io() noexcept;

// Opens a stream like fopen, but never follows a symbolic link planted at the
// path and never lets the descriptor leak into programs the library runs.
FILE *open_stream_nofollow(const char *path, const char *mode) noexcept;

// Makes a newly created directory entry durable; failures are logged.
int sync_parent_directory(const char *path) noexcept;

// The names a flush_and_sync failure is logged under, e.g. {"fwrite fflush",
// "fwrite fsync"}: "<call>(<name>) failed:err[<errno>:<text>]." A null sync
// name asks for the flush alone.
struct SyncCalls {
    const char *flush;
    const char *sync;
};

// fflush then fsync of the stream's descriptor, through the seam. With
// stop_at_first the sync is skipped after a failed flush; otherwise both run.
// 0, or -1 when either failed (each failure logged at the caller's line).
int flush_and_sync(const char *source, int line, FILE *stream, const char *name, SyncCalls calls,
                   bool stop_at_first) noexcept;

}  // namespace jx

// (stream, name, calls, stop_at_first), logged at the caller's line.
#define JX_FLUSH_AND_SYNC(...) ::jx::flush_and_sync(__FILE__, __LINE__, __VA_ARGS__)
