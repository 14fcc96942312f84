#include "frame/frame.h"
#include "integrity/integrity.h"

namespace jx {
namespace {

struct PairWrite {
    const char *path;
    const void *data;
    uint32_t len;
};

// Stops at the first failing write; what was written stays.
int32_t write_in_order(const PairWrite (&writes)[3]) noexcept {
    for (const PairWrite &w : writes) {
        const int32_t rc = set_content(w.path, w.data, w.len);
        if (rc != JX_OK) {
            return rc;
        }
    }
    return JX_OK;
}

}  // namespace

int32_t jx_recover_directly(const RegItem *item, const void *content, uint32_t len,
                            int direction) noexcept {
    if (item == nullptr) {
        return JX_ERR_PARAM1;
    }
    char digest[kSha256HexSize];
    if (!sha256_hex(content, len, digest)) {
        JX_LOG("g_compute_checksum_for_data failed.");
        return JX_ERR_CHECKSUM;
    }
    // The checksum file of the trusted pair goes first, the destination's last.
    if (direction == kBackupToMain) {
        return write_in_order({{item->bakcrc, digest, kChecksumFileSize},
                               {item->dst, content, len},
                               {item->crc, digest, kChecksumFileSize}});
    }
    return write_in_order({{item->crc, digest, kChecksumFileSize},
                           {item->bak, content, len},
                           {item->bakcrc, digest, kChecksumFileSize}});
}

int32_t jx_crc_copy(const void *content, uint32_t len, const char *expected, const char *dest,
                    const char *dest_crc) noexcept {
    char digest[kSha256HexSize];
    if (!sha256_hex(content, len, digest)) {
        return JX_ERR_READ;
    }
    if (!digest_prefix_equal(digest, expected)) {
        JX_LOG("(%s)check CRC failed ,(checksumType:%d).", base_name(dest), kChecksumType);
        return JX_ERR_CRC;
    }
    // The success line comes before the write and stays even when the write
    // fails: log readers depend on this order.
    JX_LOG("recover file(%s) successfully.(checksumType:%d).", base_name(dest), kChecksumType);
    const int32_t rc = set_content(dest, content, len);
    return rc != JX_OK ? rc : write_checksum_file(dest_crc, digest);
}

}  // namespace jx
