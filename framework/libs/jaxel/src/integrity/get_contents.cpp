#include <cstdint>
#include <fcntl.h>

#include "frame/frame.h"
#include "integrity/integrity.h"
#include "integrity/tier.h"

namespace jx {
namespace {

constexpr int kFlashReadFlags = O_RDWR | O_SYNC;

bool read_flash(const char *path, Content &out) noexcept {
    void *handle = io().pflash_open(path, kFlashReadFlags);
    if (handle == nullptr) {
        JX_LOG("pflash_open(%s) failed.", base_name(path));
    } else {
        char *buf = nullptr;
        uint32_t len = 0;
        const int rc = io().pflash_get_contents(handle, &buf, &len);
        io().pflash_close(handle);
        if (rc == 0) {
            out.data.reset(buf);
            out.len = len;
            return true;
        }
        g_free(buf);
        JX_LOG("pflash_get_contents failed: %d.", rc);
    }
    JX_LOG("get %s contents failed.", base_name(path));
    return false;
}

}  // namespace

bool read_whole_file(const char *path, Content &out, GErrorPtr &error, std::size_t limit) noexcept {
    gchar *buf = nullptr;
    std::size_t len = 0;
    GError *raw = nullptr;
    if (!read_regular_file(path, limit, &buf, &len, &raw)) {
        error.reset(raw);
        return false;
    }
    if (const uint64_t wide = len; wide > UINT32_MAX) {
        g_free(buf);
        error.reset(g_error_new_literal(G_FILE_ERROR, G_FILE_ERROR_FAILED, "file too large"));
        return false;
    }
    out.data.reset(buf);
    out.len = static_cast<uint32_t>(len);
    return true;
}

bool read_whole_file_logged(const char *path, Content &out, std::size_t limit) noexcept {
    GErrorPtr error;
    if (!read_whole_file(path, out, error, limit)) {
        JX_LOG("g_file_get_contents(%s) failed: %s.", base_name(path), error->message);
        return false;
    }
    return true;
}

bool jx_get_contents(const char *path, Content &out) noexcept {
    if (tier_of(path) == Tier::kFlash) {
        return read_flash(path, out);
    }
    GErrorPtr error;
    if (!read_whole_file(path, out, error)) {
        JX_LOG("get %s contents failed: %s.", base_name(path), error->message);
        return false;
    }
    return true;
}

int32_t jx_file_copy(const char *from, const char *to) noexcept {
    if (from == nullptr) {
        return JX_ERR_PARAM1;
    }
    if (to == nullptr) {
        return JX_ERR_PARAM2;
    }
    Content content;
    if (!jx_get_contents(from, content)) {
        JX_LOG("jx_get_contents (%s) failed: ret %d.", base_name(from), JX_ERR_OPEN);
        return JX_ERR_OPEN;
    }
    const char *bytes = content.data ? content.data.get() : "";
    const int32_t rc = set_content(to, bytes, content.len);
    if (rc != JX_OK) {
        JX_LOG("jx_set_content failed: ret %d.", rc);
    }
    return rc;
}

}  // namespace jx
