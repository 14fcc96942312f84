#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

#include "frame/frame.h"
#include "integrity/integrity.h"
#include "integrity/tier.h"

namespace jx {
namespace {

constexpr int kFlashWriteFlags = O_RDWR | O_CREAT | O_SYNC;

int32_t write_flash(const char *path, const void *buf, uint32_t len) noexcept {
    void *handle = io().pflash_open(path, kFlashWriteFlags);
    if (handle == nullptr) {
        JX_LOG("pflash_open(%s) failed.", base_name(path));
        return JX_ERR_OPEN;
    }
    int32_t rc = JX_OK;
    if (io().pflash_write(handle, buf, len) < 0) {
        JX_LOG("pflash_write(%s) failed.", base_name(path));
        rc = JX_ERR_WRITE;
    }
    io().pflash_close(handle);
    return rc;
}

// Truncate, write, flush, fsync, in place: a cut between truncation and sync is
// caught by the side files and repaired by recovery.
int32_t write_file(const char *path, const void *buf, uint32_t len, bool counted) noexcept {
    const bool existed = ::access(path, F_OK) == 0;
    UniqueStream stream(io().fopen(path, "w+"));
    if (!stream) {
        JX_LOG_ERRNO("g_fopen ", base_name(path));
        return JX_ERR_OPEN;
    }
    const size_t written = io().fwrite(buf, 1, len, stream.get());
    if (written != len) {
        const int e = errno;
        JX_LOG("fwrite(%s len %d) failed: wret %d errno %d(%s)", base_name(path),
               static_cast<int>(len), static_cast<int>(written), e, g_strerror(e));
        return JX_ERR_WRITE;
    }
    if (counted) {
        add_to_write_counter(kCounterSaveBytes, len);
    }
    int32_t rc = JX_OK;
    if (JX_FLUSH_AND_SYNC(stream.get(), base_name(path),
                          {"jx_set_content fflush", "jx_set_content fsync"}, false) != 0) {
        rc = JX_ERR_WRITE;
    }
    if (rc == JX_OK && !existed && sync_parent_directory(path) != 0) {
        rc = JX_ERR_WRITE;
    }
    return rc;
}

}  // namespace

int32_t set_content(const char *path, const void *buf, uint32_t len) noexcept {
    if (path == nullptr) {
        return JX_ERR_PARAM1;
    }
    if (buf == nullptr) {
        return JX_ERR_PARAM2;
    }
    switch (tier_of(path)) {
    case Tier::kFlash: return write_flash(path, buf, len);
    case Tier::kSave: return write_file(path, buf, len, true);
    case Tier::kPlain: break;
    }
    return write_file(path, buf, len, false);
}

}  // namespace jx
