#include <cerrno>
#include <unistd.h>

#include "frame/frame.h"
#include "integrity/integrity.h"
#include "journal/journal.h"
#include "keyfile/keyfile.h"

namespace jx {
namespace {

// Serialised first, then text and side file change together through one record.
int32_t write_back(GKeyFile *key, const char *path) noexcept {
    (void)recover_pending(path);
    gsize length = 0;
    GError *raw = nullptr;
    const GPtr<gchar> text(g_key_file_to_data(key, &length, &raw));
    if (raw != nullptr) {
        const GErrorPtr error(raw);
        JX_LOG("g_key_file_to_data(%s) failed(%d): %s.", base_name(path), error->code,
               error->message);
        return JX_ERR_WRITE;
    }
    char digest[kSha256HexSize];
    if (!sha256_hex(text.get(), length, digest)) {
        JX_LOG("g_compute_checksum_for_data(sha256) failed.");
        return JX_ERR_CHECKSUM;
    }
    const auto len = static_cast<uint32_t>(length);
    if (commit_with_side_file(path, text.get(), len, digest, true) != JX_OK) {
        JX_LOG("g_fprintf(%s) failed: return length(%d), text length(%d).", base_name(path), 0,
               static_cast<int>(length));
        return JX_ERR_WRITE;
    }
    return JX_OK;
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
