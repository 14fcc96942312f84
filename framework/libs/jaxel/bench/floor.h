// The mandated work of the library's operations done with raw system calls,
// as the floor that their costs are compared with.
#pragma once

#include <cstddef>
#include <string>

namespace jx::bench {

// Appends `len` bytes to the file open as `fd` at `path` the way a protected
// write must: read it whole, digest the new content twice (computed, then
// checked), write its side file durably, rewrite it in place and sync it.
bool protected_append_floor(int fd, const std::string &path, const char *bytes, std::size_t len);

// A log write: the reboot-flag test, the lock on the file, the write.
bool log_write_floor(int fd, const char *bytes, std::size_t len);

}  // namespace jx::bench
