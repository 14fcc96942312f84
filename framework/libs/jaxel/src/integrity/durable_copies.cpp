#include <cstring>
#include <unistd.h>

#include "frame/frame.h"
#include "integrity/integrity.h"
#include "integrity/tier.h"

namespace jx {
namespace {

bool configured(const char *path) noexcept { return path[0] != '\0'; }

void count_write(const char *path, uint32_t len, uint64_t &written) noexcept {
    if (tier_of(path) != Tier::kPlain) {
        written += len;
    }
}

int32_t write_pair(const char *path, const char *crc, const void *content, uint32_t len,
                   const char *digest, uint64_t &written) noexcept {
    // The checksum goes first: a cut before the content leaves a pair that
    // fails and the other pair, still whole, for recovery.
    if (configured(crc)) {
        const int32_t rc = set_content(crc, digest, kChecksumFileSize);
        if (rc != JX_OK) {
            return rc;
        }
        count_write(crc, kChecksumFileSize, written);
    }
    const int32_t rc = set_content(path, content, len);
    if (rc == JX_OK) {
        count_write(path, len, written);
    }
    return rc;
}

}  // namespace

bool pair_holds(const char *path, const char *crc, const char *digest) noexcept {
    if (configured(crc)) {
        Content recorded;
        GErrorPtr error;
        if (!read_whole_file(crc, recorded, error) ||
            !digest_exact_equal(digest, recorded.data.get())) {
            return false;
        }
    }
    // A missing copy is answered without a read that would log.
    if (::access(path, F_OK) != 0) {
        return false;
    }
    Content held;
    char held_digest[kSha256HexSize];
    return jx_get_contents(path, held) && sha256_hex(held.data.get(), held.len, held_digest) &&
           std::strcmp(held_digest, digest) == 0;
}

int32_t write_durable_copies(const RegItem &item, const void *content, uint32_t len,
                             const char *digest, uint64_t &written) noexcept {
    const struct {
        const char *path;
        const char *crc;
    } pairs[] = {{item.dst, item.crc}, {item.bak, item.bakcrc}};
    for (const auto &pair : pairs) {
        if (!configured(pair.path) || pair_holds(pair.path, pair.crc, digest)) {
            continue;
        }
        const int32_t rc = write_pair(pair.path, pair.crc, content, len, digest, written);
        if (rc != JX_OK) {
            return rc;
        }
    }
    return JX_OK;
}

}  // namespace jx
