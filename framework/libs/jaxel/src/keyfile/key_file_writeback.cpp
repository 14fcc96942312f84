#include <cerrno>
#include <unistd.h>

#include "frame/frame.h"
#include "integrity/integrity.h"
#include "keyfile/keyfile.h"

namespace jx {
namespace {

// The exact length is written, so a short write is never mistaken for success.
int32_t write_text(FILE *stream, const char *path, const char *text, gsize length) noexcept {
    const size_t written = io().fwrite(text, 1, length, stream);
    if (written != length) {
        JX_LOG("g_fprintf(%s) failed: return length(%d), text length(%d).", base_name(path),
               static_cast<int>(written), static_cast<int>(length));
        return JX_ERR_WRITE;
    }
    const int flushed = io().fflush(stream);
    if (flushed != 0) {
        const int e = errno;
        JX_LOG("fflush(%s) failed: ret [%d] errno [%d: %s].", base_name(path), flushed, e,
               g_strerror(e));
        return JX_ERR_WRITE;
    }
    const int synced = io().fsync(fileno(stream));
    if (synced != 0) {
        const int e = errno;
        JX_LOG("fsync(%s) failed: ret [%d] errno [%d: %s].", base_name(path), synced, e,
               g_strerror(e));
        return JX_ERR_WRITE;
    }
    return JX_OK;
}

int32_t write_back(GKeyFile *key, const char *path) noexcept {
    const bool existed = ::access(path, F_OK) == 0;
    const UniqueStream stream(io().fopen(path, "w+"));
    if (!stream) {
        return JX_ERR_OPEN;
    }
    gsize length = 0;
    GError *raw = nullptr;
    const GPtr<gchar> text(g_key_file_to_data(key, &length, &raw));
    if (raw != nullptr) {
        const GErrorPtr error(raw);
        JX_LOG("g_key_file_to_data(%s) failed(%d): %s.", base_name(path), error->code,
               error->message);
        return JX_ERR_WRITE;
    }
    int32_t rc = write_text(stream.get(), path, text.get(), length);
    if (rc == JX_OK && !existed && sync_parent_directory(path) != 0) {
        rc = JX_ERR_WRITE;
    }
    if (rc != JX_OK) {
        return rc;
    }
    // The side file records exactly the text that was written.
    rc = ram_check_sum(path, text.get(), static_cast<uint32_t>(length));
    if (rc != JX_OK) {
        JX_LOG("__ram_check_sum(%s) failed: %d.", base_name(path), rc);
    }
    return rc;
}

}  // namespace

// Takes no lock: the caller holds its key-file lock from jx_open_key_file.
int32_t writeback_key_file(GKeyFile *key, const char *path) noexcept {
    if (key == nullptr) {
        return JX_REFUSE(JX_ERR_PARAM1, "key");
    }
    if (path == nullptr) {
        return JX_REFUSE(JX_ERR_PARAM2, "path");
    }
    if (!has_prefix(path, kPramDir) || climbs_out(path, kPramDir)) {
        return JX_ERR_PARAM2;
    }
    const int32_t rebooting = reboot_guard(true);
    if (rebooting != JX_OK) {
        return rebooting;
    }
    return write_back(key, path);
}

}  // namespace jx
