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

bool any_on_flash(std::initializer_list<ContentWrite> writes) noexcept {
    for (const ContentWrite &w : writes) {
        if (tier_of(w.path) == Tier::kFlash) {
            return true;
        }
    }
    return false;
}

// The flash driver writes each file whole itself; in order, first failure ends it.
int32_t write_each(std::initializer_list<ContentWrite> writes) noexcept {
    for (const ContentWrite &w : writes) {
        const int32_t rc = set_content(w.path, w.data, w.len);
        if (rc != JX_OK) {
            return rc;
        }
    }
    return JX_OK;
}

}  // namespace

// One record, then in place: a cut anywhere leaves the old or the new bytes of
// every file, and a save-area target is still written and synced exactly once.
int32_t set_contents(std::initializer_list<ContentWrite> writes) noexcept {
    for (const ContentWrite &w : writes) {
        if (w.path == nullptr || w.data == nullptr) {
            return w.path == nullptr ? JX_ERR_PARAM1 : JX_ERR_PARAM2;
        }
    }
    if (any_on_flash(writes)) {
        return write_each(writes);
    }
    Transaction transaction;
    for (const ContentWrite &w : writes) {
        (void)recover_pending(w.path);
        transaction.write(w.path, w.data, w.len, true);
    }
    if (transaction.commit() != 0) {
        const int e = errno;
        const ContentWrite &first = *writes.begin();
        JX_LOG("fwrite(%s len %d) failed: wret %d errno %d(%s)", base_name(first.path),
               static_cast<int>(first.len), 0, e, g_strerror(e));
        return JX_ERR_WRITE;
    }
    for (const ContentWrite &w : writes) {
        if (tier_of(w.path) == Tier::kSave) {
            add_to_write_counter(kCounterSaveBytes, w.len);
        }
    }
    return JX_OK;
}

int32_t set_content(const char *path, const void *buf, uint32_t len) noexcept {
    if (path == nullptr) {
        return JX_ERR_PARAM1;
    }
    if (buf == nullptr) {
        return JX_ERR_PARAM2;
    }
    if (tier_of(path) == Tier::kFlash) {
        return write_flash(path, buf, len);
    }
    return set_contents({{path, buf, len}});
}

}  // namespace jx
