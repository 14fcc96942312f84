#include <cerrno>
#include <cstdio>

#include "frame/frame.h"
#include "integrity/integrity.h"

namespace jx {
namespace {

// Truncate, write, flush, fsync, in place; each failure is a write failure.
int32_t replace_content(JxFile *stream, const void *content, uint32_t len) noexcept {
    if (io().ftruncate(stream->file_no, 0) != 0) {
        JX_LOG_ERRNO("ftruncate", base_name(stream->file_path));
        return JX_ERR_WRITE;
    }
    (void)io().fseek(stream->fd, 0, SEEK_SET);
    if (io().fwrite(content, 1, len, stream->fd) != len) {
        JX_LOG("fwrite %s failed.", base_name(stream->file_path));
        return JX_ERR_WRITE;
    }
    if (JX_FLUSH_AND_SYNC(stream->fd, stream->file_name, kFwriteSyncCalls, true) != 0) {
        return JX_ERR_WRITE;
    }
    return JX_OK;
}

}  // namespace

// The side file is written before the content: a cut anywhere after it leaves
// a file that fails its side file, which sends it to recovery at the next open.
int32_t jx_rewrite_with_crc(JxFile *stream, const void *content, uint32_t len,
                            const char *expected) noexcept {
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
    const int32_t rc = write_side_file(stream->file_path, digest);
    if (rc != JX_OK) {
        return rc;
    }
    return replace_content(stream, content, len);
}

}  // namespace jx
