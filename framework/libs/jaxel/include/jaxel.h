/* libjaxel: durable, checksummed, recoverable files for controller services.
 *
 * A service process names itself with jx_set_module_name, registers its files with jx_init, then
 * opens them by short name and writes through the returned handle; every write is flushed and
 * synced, each protected file keeps a SHA-256 side file (path + ".sha256") in step, and a damaged
 * working copy in /opt/ulx/pram/ is rebuilt from its durable copy when it is registered or opened.
 *
 * Results. Functions returning int32_t give 0 (JX_OK) or a negative JX_ERR_* code. An invalid
 * argument is answered by the code of its position: JX_ERR_PARAM1 for the first up to
 * JX_ERR_PARAM5 for the fifth. JX_ERR_REBOOTING means the reboot flag /dev/shm/.Reboot.flag
 * (owned by root) was set when the call began; nothing was changed. Every failure also writes one
 * line to the system log (facility local0, level debug); the library prints nothing else.
 *
 * Threads and processes. The library starts no threads. Several processes may use the same files
 * at once, and each may call the library from several threads, with these rules:
 *  - Start-up (jx_set_module_name, then jx_init or jx_init_cfg) must finish before other threads
 *    of the process use the library; the module name and the list of registered files are read
 *    without a lock afterwards.
 *  - The library mutex: one per process, not recursive. Every call that changes a managed file
 *    takes it, then an exclusive flock on the descriptor of that file, and releases both in
 *    reverse order. Two threads of a process never change files at the same time.
 *  - The table lock: an exclusive flock on the process's descriptor of
 *    /opt/ulx/pram/fsync_reg.ini, taken by start-up for its whole run and by every lookup of a
 *    registered file. It never takes the mutex.
 *  - Waiting for any flock polls every 10 ms without a time limit.
 *  - A packaging callback (JxPackageCallback) runs with both the mutex and the file's flock held:
 *    it must not call any function of this library that takes the mutex.
 *  - jx_exit is final: it takes the mutex and keeps it, so it must be the process's last call.
 *
 * Protect modes (JX_PROTECT_*): R keeps a backup beside the working copy in /opt/ulx/pram/; C a
 * plain durable copy without checksums; E and S a durable copy and a backup in /opt/ulx/save/,
 * each with its checksum file; P a copy in /opt/ulx/pflash/ behind the flash driver; F a file
 * that is only listed (for factory restore). R, E, S and P working copies carry side files.
 *
 * Privileges (JxPrivilege): the low 32 bits are a mode code, the high 32 bits a group id. The
 * mode code writes octal permission digits as hexadecimal digits: 0x640 means 0640. Owner read
 * and write are always granted; of the group and other digits only read (4) and write (2)
 * count. */
#ifndef JAXEL_H
#define JAXEL_H

#include <glib.h>
#include <stdint.h>
#include <stdio.h>

/* The library's version; the configure step checks it against the build's own. */
#define JAXEL_VERSION_MAJOR 0
#define JAXEL_VERSION_MINOR 1
#define JAXEL_VERSION_PATCH 0
#define JAXEL_VERSION_STRING "0.1.0"

#ifdef __cplusplus
extern "C" {
#define JX_NOEXCEPT noexcept
#else
#define JX_NOEXCEPT
#endif

typedef uint64_t JxPrivilege; /* low 32 bits: mode code; high 32 bits: group id */
typedef uint32_t ProtectMode; /* 0 R, 1 C, 2 E, 3 S, 4 P, 5 F, 6 invalid */

enum {
    JX_PROTECT_R = 0,
    JX_PROTECT_C = 1,
    JX_PROTECT_E = 2,
    JX_PROTECT_S = 3,
    JX_PROTECT_P = 4,
    JX_PROTECT_F = 5,
    JX_PROTECT_INVALID = 6
};

/* Storage tiers of jx_get_file_path. */
enum { JX_TIER_PRAM = 0, JX_TIER_SAVE = 1, JX_TIER_SAVE_ALT = 2, JX_TIER_PFLASH = 3 };

enum {
    JX_OK = 0,
    JX_ERR_PARAM1 = -4000000,
    JX_ERR_PARAM2 = -3999999,
    JX_ERR_PARAM3 = -3999998,
    JX_ERR_PARAM4 = -3999997,
    JX_ERR_PARAM5 = -3999996,
    JX_ERR_STATE = -3999995,
    JX_ERR_KEY_FILE = -3999994,
    JX_ERR_PROTECT_MODE = -3999993,
    JX_ERR_NO_MEMORY = -3999992,
    JX_ERR_NOT_REGISTERED = -3999991,
    JX_ERR_OPEN = -3999989,
    JX_ERR_WRITE = -3999987,
    JX_ERR_READ = -3999986,
    JX_ERR_NOT_FOUND = -3999985,
    JX_ERR_CRC = -3999984,
    JX_ERR_COPY = -3999983,
    JX_ERR_CHECKSUM = -3999982,
    JX_ERR_PACKAGE = -3999979,
    JX_ERR_NO_RECOVER_POINT = -3999977,
    JX_ERR_COMMAND = -3999976,
    JX_ERR_REBOOTING = -3999972,
    JX_ERR_LOAD_REQ = -4999981
};

typedef struct JxModuleItem JxModuleItem;
/* Called after a file was packaged and emptied; item belongs to the library. */
typedef void (*JxPackageCallback)(JxModuleItem *item);

struct JxModuleItem {
    char short_name[96];
    uint32_t protect_mode;
    int32_t package_size;
    char package_path[256];
    JxPackageCallback callback;
    JxPrivilege privilege;
};

typedef struct JxItemCfg {
    const char *short_name;
    const char *path; /* may be NULL */
    uint32_t protect_mode;
    int32_t package_size;
    JxPackageCallback callback; /* may be NULL */
    const char *package_path;   /* may be NULL */
    JxPrivilege privilege;
    const char *callback_obj;    /* may be NULL */
    const char *callback_method; /* may be NULL */
} JxItemCfg;

typedef struct JxFile {
    FILE *fd; /* the stream, despite the name */
    int32_t file_no;
    char file_path[256];
    char file_name[256];
    char package_name[256];
    char mode[6];
    JxModuleItem *item;
} JxFile;

/* frame */
/* Sets the process's module name (at most 31 characters are kept), which names its files.
 * JX_ERR_PARAM1 for a null name. No lock: call it before other threads use the library. */
int32_t jx_set_module_name(const char *name) JX_NOEXCEPT;
/* The module name; the library's own buffer, never to be freed, and updated in place by a later
 * jx_set_module_name. "" before the first. No lock. */
const char *jx_get_module_name(void) JX_NOEXCEPT;
/* Takes an exclusive flock on fd, waiting for it without a time limit; jx_file_unlock releases
 * it. A descriptor of 0 or below is ignored. Threads sharing a descriptor share its lock. */
void jx_file_lock(int fd) JX_NOEXCEPT;
void jx_file_unlock(int fd) JX_NOEXCEPT;
/* The final stop: takes the library mutex and never releases it, after any running operation
 * has finished. Returns 0. No call that takes the mutex can run in this process afterwards. */
int32_t jx_exit(void) JX_NOEXCEPT;
/* Writes the path of a module file into buf (size bytes, NUL-terminated, cut to fit): the tier's
 * directory (JX_TIER_*: /opt/ulx/pram/, /opt/ulx/save/ twice, /opt/ulx/pflash/), module_name,
 * "_" and short_name. Writes nothing for a null argument or an unknown tier. No lock. */
void jx_get_file_path(const char *short_name, const char *module_name, uint32_t tier, char *buf,
                      uint32_t size) JX_NOEXCEPT;

/* start-up */
/* jx_init_cfg with the process's module name; a failure is also logged here. */
int32_t jx_init(const JxItemCfg *cfg, int32_t count) JX_NOEXCEPT;
/* Registers count elements of cfg for module_name (the library copies what it keeps of cfg,
 * so the caller may free cfg afterwards): derives each file's copies from its protect
 * mode, adds a table group unless the file is listed already, adds the item to the process's
 * list (elements already in it are skipped), and repairs the working copy; an element with a
 * package size also registers its package as a C file. Then acts on a factory-restore request.
 * Holds the table lock throughout, and the mutex and the file's flock while an existing working
 * copy is repaired. Must finish before other threads use the library; may be called again.
 * JX_ERR_PARAM1 null cfg, JX_ERR_PARAM2 count 0, JX_ERR_PARAM3 null module_name,
 * JX_ERR_REBOOTING, JX_ERR_OPEN table not openable, the first failing element's code, or
 * JX_ERR_LOAD_REQ when the request could not be withdrawn. A restore that fails in part is only
 * logged. */
int32_t jx_init_cfg(const JxItemCfg *cfg, int32_t count, const char *module_name) JX_NOEXCEPT;
/* Request 1 asks for a restore from the factory recovery point at the next start-up
 * (JX_ERR_NO_RECOVER_POINT when there is none); any other value withdraws the request. The
 * result of the durable flag write (jx_set_content). No lock. */
int32_t jx_factory_load_req(uint32_t request) JX_NOEXCEPT;

/* handles */
/* jx_fopen_file with the process's module name. */
JxFile *jx_fopen(const char *short_name, const char *mode) JX_NOEXCEPT;
/* Opens the registered file short_name of module_name with an fopen mode ("r", "w" or "a",
 * each optionally followed by "+" and "b") and gives it the item's mode
 * and group. A file with a package size opens only for reading or appending. A
 * truncating mode ("w", "w+", "wb", "w+b") on an existing file clears it first as
 * jx_clear_module_file does. A working copy that fails its side file is rebuilt from its
 * durable copy under the mutex and the file's flock. Returns a handle that the caller owns and
 * ends with jx_fclose, or NULL (logged) on any failure. */
JxFile *jx_fopen_file(const char *short_name, const char *module_name,
                      const char *mode) JX_NOEXCEPT;
/* Closes the handle's stream and frees the handle; NULL is ignored. Not for log handles. */
void jx_fclose(JxFile *stream) JX_NOEXCEPT;
/* Writes n items of size bytes like fwrite and returns the count written. Takes the mutex, then
 * the handle's flock. A file at its package size is first rolled into its .tar.gz package and
 * emptied, and the item's callback runs (with both locks held); while packaging fails the file
 * may grow to twice its package size, after which writes return 0. R, E, S and P files are
 * rewritten whole with their side file first (a read-only handle returns 0); other files get
 * the bytes written, flushed and synced. JX_ERR_PARAM1 null ptr, JX_ERR_PARAM4 null handle or
 * stream, JX_ERR_REBOOTING, JX_ERR_READ when the size cannot be read. */
int32_t jx_fwrite(const void *ptr, uint32_t size, uint32_t n, JxFile *stream) JX_NOEXCEPT;
/* Opens the log file jx_info->path with an fopen mode (read or append only when it has a
 * package size) and gives it jx_info's mode and group. The handle holds its own copy of
 * jx_info; the caller owns it and ends it with jx_fclose_log_file. NULL (logged) on failure. */
JxFile *jx_fopen_log_file(const JxItemCfg *jx_info, const char *mode) JX_NOEXCEPT;
/* Appends like jx_fwrite, with the same locks and packaging into the package directory, but
 * the stream is only flushed, not synced. Adds the items written to write counter 1. */
int32_t jx_fwrite_log(const void *ptr, uint32_t size, uint32_t n, JxFile *stream) JX_NOEXCEPT;
/* Closes a log handle and frees it with its copy of the description; NULL is ignored. */
void jx_fclose_log_file(JxFile *stream) JX_NOEXCEPT;
/* Stores the package size of the registered file short_name in *size. JX_ERR_PARAM1,
 * JX_ERR_PARAM2, JX_ERR_NOT_REGISTERED (log files are not registered). No lock. */
int32_t jx_get_package_size(const char *short_name, uint32_t *size) JX_NOEXCEPT;
/* Flushes and syncs the handle's stream, then syncs the file's registered copies and checksum
 * files; failures are only logged. Takes the table lock for the lookup, no mutex. */
void jx_flush_file(JxFile *stream) JX_NOEXCEPT;

/* maintenance */
/* The permission bits for a mode code: 0600 plus the group and other read and write bits named
 * by its hexadecimal digits (0x640 gives 0640). */
uint32_t jx_create_privilege(uint32_t code) JX_NOEXCEPT;
/* Applies the mode and then the group of privilege to the existing file at path; any failure is
 * silent. No lock. */
void jx_set_privilege(const char *path, JxPrivilege privilege) JX_NOEXCEPT;
/* Gives target the owner, group and mode of reference (a .tar.gz target then mode 0440). 0 also
 * when either file is missing. JX_ERR_PARAM1 / JX_ERR_PARAM2 for a null, empty or non-regular
 * file; a failed stat, chown or chmod returns that call's own result (-1). No lock. */
int32_t jx_sync_privilege(const char *reference, const char *target) JX_NOEXCEPT;
/* Empties the registered file short_name of module_name, syncs it, refreshes its side file
 * and removes its packages. Takes the mutex, then the file's flock. JX_ERR_PARAM1, JX_ERR_PARAM2,
 * JX_ERR_STATE nothing registered yet, JX_ERR_REBOOTING, JX_ERR_NOT_REGISTERED, JX_ERR_OPEN,
 * JX_ERR_WRITE, JX_ERR_PROTECT_MODE (the file is emptied all the same). */
int32_t jx_clear_module_file(const char *short_name, const char *module_name) JX_NOEXCEPT;
/* jx_clear_module_file with the process's module name. */
int32_t jx_clear_file(const char *short_name) JX_NOEXCEPT;
/* Empties and flushes the log file descriptor->path and removes its package. Takes the mutex,
 * then the file's flock. JX_ERR_PARAM1, JX_ERR_REBOOTING, JX_ERR_OPEN, JX_ERR_WRITE. */
int32_t jx_clear_log_file(const JxItemCfg *descriptor) JX_NOEXCEPT;
/* Writes one character through the handle, flushes it, then refreshes the side file. Takes the
 * mutex, then the handle's flock. JX_ERR_PARAM2 null handle or stream, JX_ERR_WRITE. */
int32_t jx_fputc(int c, JxFile *stream) JX_NOEXCEPT;
/* In-place edits. The arguments come in the order data, its length, offset, then (jx_modify)
 * the length replaced, and the handle last; jx_delete takes the count before the offset.
 * Inserts length bytes of data at offset (at the end when offset is beyond it). jx_delete
 * removes count bytes at offset (nothing when offset is at or past the end); jx_modify replaces
 * replaced_length bytes at offset with length bytes of data. Each rewrites the whole file with
 * its side file first, under the mutex and the handle's flock. Argument codes follow the
 * position (a zero length for jx_insert or count for jx_delete changes nothing and returns 0;
 * jx_modify refuses an offset at or past the end with JX_ERR_PARAM3); also JX_ERR_REBOOTING,
 * JX_ERR_READ, JX_ERR_NO_MEMORY, JX_ERR_CHECKSUM, JX_ERR_WRITE. */
int32_t jx_insert(const void *data, uint32_t length, uint32_t offset, JxFile *stream) JX_NOEXCEPT;
int32_t jx_delete(uint32_t count, uint32_t offset, JxFile *stream) JX_NOEXCEPT;
int32_t jx_modify(const void *data, uint32_t length, uint32_t offset, uint32_t replaced_length,
                  JxFile *stream) JX_NOEXCEPT;

/* integrity */
/* Replaces the file at path with len bytes of buf, durably: through the flash driver under
 * /opt/ulx/pflash/, otherwise truncate, write, flush and sync (counted in write counter 2 under
 * /opt/ulx/save/). JX_ERR_PARAM1, JX_ERR_PARAM2, JX_ERR_OPEN, JX_ERR_WRITE. Takes no lock. */
int32_t jx_set_content(const char *path, const void *buf, uint32_t len) JX_NOEXCEPT;
/* Adds count to write counter index (0 external, 1 log items, 2 save-area bytes); another index
 * is ignored. jx_wirte_cnt_get reads one (UINT64_MAX for another index). The counters are per
 * process and unsynchronised: statistics only. */
void jx_wirte_cnt_set(uint32_t index, uint32_t count) JX_NOEXCEPT;
uint64_t jx_wirte_cnt_get(uint32_t index) JX_NOEXCEPT;
/* 1 when the checksum file begins with the 64-digit SHA-256 of the file at path, else 0. */
int is_file_valid(const char *path, const char *checksum_path) JX_NOEXCEPT; /* 1 or 0 */
/* 1 when the file under /opt/ulx/pram/ matches its side file or has none yet, else 0. */
int is_ram_file_valid(const char *path) JX_NOEXCEPT; /* 1 or 0 */
/* Records the current digest of every existing working copy of the table's groups of protect
 * mode `mode` (0 R to 5 F; C and F have none). Takes the table lock to read the table. */
void ram_check_update(int mode) JX_NOEXCEPT;
/* 0 when the ".bak" pair of path is sound; otherwise repairs the R file from its backup:
 * JX_ERR_PARAM1, JX_ERR_NOT_REGISTERED, JX_ERR_NOT_FOUND (no copy), JX_ERR_CRC (both copies
 * damaged; they are removed), JX_ERR_READ or a write code. jx_recovery_flash_bak weighs the
 * durable copy and backup of a registered E or S file against each other the same way. */
int32_t jx_check_recovery_rambak(const char *path) JX_NOEXCEPT;
int32_t jx_recovery_flash_bak(const char *path) JX_NOEXCEPT;

/* key files */
/* Opens a key file under /opt/ulx/pram/ (NULL for another path or fd -1): takes the flock on
 * fd, rebuilds the file from its durable copy when it fails its side file, and loads it. With
 * hold 0 the lock is released once the file is loaded; with hold not 0 it stays (for a later
 * jx_writeback_key_file) until jx_close_key_file with hold not 0; a failed open releases it. The
 * caller owns the key file and ends it with jx_close_key_file (same fd and hold). NULL on failure.
 * No mutex. */
GKeyFile *jx_open_key_file(const char *path, int fd, int hold) JX_NOEXCEPT;
/* Frees key and, with hold not 0, releases the flock on fd. JX_ERR_PARAM1 for a null key. */
int32_t jx_close_key_file(GKeyFile *key, int fd, int hold) JX_NOEXCEPT;
/* Writes key over path (under /opt/ulx/pram/) durably, then its side file. Takes no lock: the
 * caller holds the file's lock from jx_open_key_file. JX_ERR_PARAM1 null key, JX_ERR_PARAM2
 * path outside /opt/ulx/pram/, JX_ERR_REBOOTING, JX_ERR_OPEN, JX_ERR_WRITE, JX_ERR_CHECKSUM. */
int32_t jx_writeback_key_file(GKeyFile *key, const char *path) JX_NOEXCEPT;
/* 1 when s holds only printable ASCII (space to '~'; "" included), 0 otherwise or for NULL. */
int jx_key_file_string_valid(const char *s) JX_NOEXCEPT; /* 1 or 0 */

/* factory restore */
/* Copies back, for every F group of the table in order, the file of the same base name from
 * directory; a live file without a factory copy is removed. Stops at the first failed copy
 * (JX_ERR_COPY), undoing nothing. JX_ERR_PARAM1, JX_ERR_KEY_FILE when the table cannot be read.
 * Takes the table lock through the checked open of the table. */
int32_t jx_recover_factory_cfg(const char *directory) JX_NOEXCEPT;

#undef JX_NOEXCEPT
#ifdef __cplusplus
}
#endif

#endif /* JAXEL_H */
