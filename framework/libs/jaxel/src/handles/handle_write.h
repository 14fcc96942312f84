// What the handle operations share among themselves (private to handles).
#pragma once

#include <cstddef>
#include <cstdint>

#include "jaxel.h"

namespace jx {

// One write call on a handle, as jx_fwrite and jx_fwrite_log receive it.
struct WriteRequest {
    const void *ptr;
    uint32_t size;
    uint32_t n;
    JxFile *stream;
};

// Rolls the handle's file into its package and empties it; 0 or the code that
// "jx_package failed: ret %d." reports. Runs with both locks held.
using Packager = int32_t (*)(JxFile *stream);
// The write itself, under both locks and after the size check.
using WriteBody = int32_t (*)(const WriteRequest &request);

// The steps every handle write shares: argument checks, reboot guard, library
// mutex and flock on the handle, the size check with `packager`; then `body`.
int32_t locked_handle_write(const WriteRequest &request, Packager packager,
                            WriteBody body) noexcept;

// "fwrite <name> (sz <size> count <n>) failed: wcnt <written> errno ...", for errno.
void log_short_write(const WriteRequest &request, std::size_t written) noexcept;
// One stream write of the request; a short count is logged and returned.
std::size_t write_items(const WriteRequest &request) noexcept;

// A size-limited file may only be read or appended to; false after logging.
bool open_mode_allowed(int32_t package_size, const char *mode) noexcept;

// The module file's package "/opt/ulx/pram/" + package_name.
int32_t jx_package(JxFile *stream) noexcept;
// The log file's package in its package directory.
int32_t jx_package_log(JxFile *stream) noexcept;

}  // namespace jx
