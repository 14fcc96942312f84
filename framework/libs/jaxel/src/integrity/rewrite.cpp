#include <cerrno>
#include <cstdio>
#include <sys/stat.h>

#include <utility>

#include "frame/frame.h"
#include "integrity/integrity.h"
#include "integrity/tier.h"
#include "journal/journal.h"

namespace jx {

int32_t commit_with_side_file(const char *path, const void *content, uint32_t len,
                              const char *digest, bool may_create,
                              Transaction &&transaction) noexcept {
    const Path side = side_file_of(path);
    transaction.write(path, content, len, may_create, digest);
    transaction.write(side.c_str(), digest, kChecksumFileSize, true);
    if (transaction.commit() != 0) {
        return JX_ERR_WRITE;
    }
    if (tier_of(side.c_str()) == Tier::kSave) {
        add_to_write_counter(kCounterSaveBytes, kChecksumFileSize);
    }
    (void)change_mode_of(side.c_str(), S_IRUSR | S_IWUSR);
    return JX_OK;
}

// Content and side file change together through one redo record, in place,
// so the handle's stream and any other process's lock stay on the live file.
int32_t jx_rewrite_with_crc(JxFile *stream, const void *content, uint32_t len, const char *expected,
                            Transaction &&transaction) noexcept {
    if (stream == nullptr || stream->fd == nullptr) {
        return JX_ERR_PARAM1;
    }
    char digest[kSha256HexSize];
    if (!sha256_hex(content, len, digest)) {
        JX_LOG("g_compute_checksum_for_data(sha256) failed.");
        return JX_ERR_CHECKSUM;
    }
    if (!digest_exact_equal(digest, expected)) {
        JX_LOG("crc check failed.");
        return JX_ERR_CHECKSUM;
    }
    const int32_t rc = commit_with_side_file(stream->file_path, content, len, digest, false,
                                             std::move(transaction));
    if (rc != JX_OK) {
        JX_LOG("fwrite %s failed.", base_name(stream->file_path));
    }
    // Drops what the stream buffered of the old content and leaves it after the new.
    (void)io().fseek(stream->fd, static_cast<off_t>(len), SEEK_SET);
    return rc;
}

}  // namespace jx
