#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

#include "frame/frame.h"
#include "integrity/integrity.h"
#include "integrity/tier.h"
#include "journal/journal.h"

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

// One record, then in place: a cut anywhere leaves the old or the new bytes,
// and a save-area target is still written and synced exactly once.
int32_t write_file(const char *path, const void *buf, uint32_t len, bool counted) noexcept {
    (void)recover_pending(path);
    Transaction transaction;
    transaction.write(path, buf, len, true);
    if (transaction.commit() != 0) {
        const int e = errno;
        JX_LOG("fwrite(%s len %d) failed: wret %d errno %d(%s)", base_name(path),
               static_cast<int>(len), 0, e, g_strerror(e));
        return JX_ERR_WRITE;
    }
    if (counted) {
        add_to_write_counter(kCounterSaveBytes, len);
    }
    return JX_OK;
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
