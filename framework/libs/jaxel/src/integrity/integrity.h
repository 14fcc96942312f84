// Integrity: whole-content writes by storage tier, checksum side files, the
// checked rewrite, the write counters and file privileges. Uses the frame and
// the registry.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <sys/types.h>

#include "frame/frame.h"
#include "integrity/checksum.h"
#include "integrity/digest.h"
#include "jaxel.h"

namespace jx {

// How the handle writes name their flush and sync when one fails.
inline constexpr SyncCalls kFwriteSyncCalls = {"fwrite fflush", "fwrite fsync"};

// Writes buf whole at path by its tier: the flash driver, or truncate, write,
// flush, fsync of a plain file (bytes into the save area are counted).
int32_t set_content(const char *path, const void *buf, uint32_t len) noexcept;

struct ContentWrite {
    const char *path;
    const void *data;
    uint32_t len;
};

// Writes several files whole as one change: all of them or none survive a cut.
// Flash targets are written one by one through the driver, in order.
int32_t set_contents(std::initializer_list<ContentWrite> writes) noexcept;

inline constexpr uint32_t kCounterExternal = 0;
inline constexpr uint32_t kCounterLogItems = 1;
inline constexpr uint32_t kCounterSaveBytes = 2;

void add_to_write_counter(uint32_t index, uint64_t amount) noexcept;
// UINT64_MAX for an index that names no counter.
uint64_t write_counter(uint32_t index) noexcept;

// A whole file held in memory; the buffer is g_malloc'd and NUL-terminated
// one past len.
struct Content {
    GPtr<char> data;
    uint32_t len = 0;
};

// Puts count bytes of data at position, growing the content (zeros in any gap
// after the old end) when they reach past it; the caller keeps the end within
// 32 bits. False after logging.
bool place_bytes(Content &content, uint64_t position, const void *data, uint64_t count) noexcept;

// Reads a regular file whole, or its first `limit` bytes, without ever
// waiting on a FIFO or device; on failure `error` says why.
bool read_whole_file(const char *path, Content &out, GErrorPtr &error,
                     std::size_t limit = SIZE_MAX) noexcept;
// The same, logging why on failure.
bool read_whole_file_logged(const char *path, Content &out, std::size_t limit = SIZE_MAX) noexcept;

// Reads the whole file from its tier; logs and returns false on failure.
bool jx_get_contents(const char *path, Content &out) noexcept;

// Copies the whole content of `from` onto `to`.
int32_t jx_file_copy(const char *from, const char *to) noexcept;

// A privilege word holds the mode code in its low 32 bits and the group id in
// its high 32 bits; there is no owner in it.
constexpr uint32_t privilege_mode_code(JxPrivilege privilege) noexcept {
    return static_cast<uint32_t>(privilege & 0xFFFFFFFFu);
}

constexpr gid_t privilege_group(JxPrivilege privilege) noexcept {
    return static_cast<gid_t>(privilege >> 32);
}

constexpr JxPrivilege make_privilege(uint32_t mode_code, uint32_t group) noexcept {
    return (static_cast<JxPrivilege>(group) << 32) | mode_code;
}

// The file mode for a mode code: owner read and write, plus the group and
// other bits the code's octal-looking hex digits name.
uint32_t create_privilege(uint32_t code) noexcept;
// Applies the mode and group of `privilege` to an existing file; silent but
// for a refused node (see PrivilegeTarget).
void set_privilege(const char *path, JxPrivilege privilege) noexcept;
// Gives target the owner, group and mode of reference.
int32_t sync_privilege(const char *reference, const char *target) noexcept;

}  // namespace jx
