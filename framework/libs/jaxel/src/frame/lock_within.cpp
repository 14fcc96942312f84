#include <sys/file.h>

#include <glib.h>

#include "frame/io.h"
#include "frame/locks.h"

namespace jx {
namespace {

constexpr uint32_t kRetryDelay = 10;

}  // namespace

// Operator tools must give up instead of hanging behind a stuck writer.
bool lock_fd_within(int fd, uint32_t wait_ms) noexcept {
    if (fd <= 0) {
        return true;
    }
    const gint64 deadline = g_get_monotonic_time() + static_cast<gint64>(wait_ms) * 1000;
    while (io().flock(fd, LOCK_EX | LOCK_NB) != 0) {
        if (g_get_monotonic_time() >= deadline) {
            return false;
        }
        io().delay(kRetryDelay);
    }
    return true;
}

}  // namespace jx
