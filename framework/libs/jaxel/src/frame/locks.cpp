#include "frame/locks.h"

#include <atomic>
#include <cerrno>
#include <sys/file.h>
#include <sys/stat.h>

#include <glib.h>

#include "frame/io.h"
#include "frame/locations.h"
#include "frame/log.h"
#include "jaxel.h"

namespace jx {
namespace {

GMutex g_jx_mutex;  // zeroed static storage needs no init call
int g_jx_reg_fd = -1;
std::atomic<bool> g_jx_stopped{false};

constexpr uint32_t kLockRetryDelay = 10;

}  // namespace

// Only contention is waited out: any other failure (a descriptor that is not
// open, say) would fail on every later attempt too.
bool lock_fd(int fd) noexcept {
    if (fd <= 0) {
        return true;
    }
    while (io().flock(fd, LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR) {
            JX_LOG("flock(%d) failed: errno %d(%s).", fd, errno, g_strerror(errno));
            return false;
        }
        io().delay(kLockRetryDelay);
    }
    return true;
}

void unlock_fd(int fd) noexcept {
    if (fd <= 0) {
        return;
    }
    (void)io().flock(fd, LOCK_UN);
}

bool reboot_flag_set() noexcept {
    struct stat st;
    return ::stat(kRebootFlagPath, &st) == 0 && st.st_uid == 0;
}

int32_t reboot_guard(bool log) noexcept {
    if (!reboot_flag_set()) {
        return JX_OK;
    }
    if (log) {
        JX_LOG("reboot processing, operation stopped.");
    }
    return JX_ERR_REBOOTING;
}

namespace {
std::atomic<uint64_t> g_holds{0};
thread_local uint64_t t_hold = 0;
}  // namespace

LibraryLock::LibraryLock() noexcept {
    g_mutex_lock(&g_jx_mutex);
    t_hold = ++g_holds;
}

LibraryLock::~LibraryLock() {
    t_hold = 0;
    g_mutex_unlock(&g_jx_mutex);
}

uint64_t library_hold() noexcept { return t_hold; }

FileLock::FileLock(const LibraryLock &, int fd) noexcept : fd_(fd) { lock_fd(fd_); }
FileLock::~FileLock() { unlock_fd(fd_); }

int reg_table_fd() noexcept { return g_jx_reg_fd; }
void set_reg_table_fd(int fd) noexcept { g_jx_reg_fd = fd; }

TableLock::TableLock(int fd) noexcept : fd_(fd) { lock_fd(fd_); }
TableLock::~TableLock() { unlock_fd(fd_); }

// The final stop: the mutex is taken and kept, so no operation that needs it
// can start again in this process. A repeated call returns at once.
int32_t stop_library() noexcept {
    if (!g_jx_stopped.exchange(true)) {
        g_mutex_lock(&g_jx_mutex);
    }
    return JX_OK;
}

}  // namespace jx
