// What the other subsystems use of the integrity subsystem.
#pragma once

#include <cstdint>

#include "frame/raii.h"
#include "integrity/checksum.h"

namespace jx {

inline constexpr uint32_t kCounterExternal = 0;
inline constexpr uint32_t kCounterLogItems = 1;
inline constexpr uint32_t kCounterSaveBytes = 2;

void add_to_write_counter(uint32_t index, uint64_t amount) noexcept;

// A whole file held in memory; the buffer is g_malloc'd and NUL-terminated
// one past len.
struct Content {
    GPtr<char> data;
    uint32_t len = 0;
};

// Reads a plain file whole; on failure `error` says why.
bool read_whole_file(const char *path, Content &out, GErrorPtr &error) noexcept;

// Reads the whole file from its tier; logs and returns false on failure.
bool jx_get_contents(const char *path, Content &out) noexcept;

// Copies the whole content of `from` onto `to`.
int32_t jx_file_copy(const char *from, const char *to) noexcept;

}  // namespace jx
