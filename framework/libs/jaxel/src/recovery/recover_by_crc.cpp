#include <cstring>

#include "frame/frame.h"
#include "integrity/integrity.h"
#include "recovery/recovery.h"
#include "recovery/recovery_copies.h"

namespace jx {
namespace {

// Backups of these items are rebuilt from the main copy even when both fail.
constexpr char kRebuildFromMainPrefix[] = "/opt/ulx/save/md_so_";

// Result of the test that all four files already agree.
enum class Agreement { kAgree, kDisagree, kNoDigest };

bool same_bytes(const Content &a, const Content &b) noexcept {
    return present(a) && present(b) && a.len == b.len &&
           std::memcmp(a.data.get(), b.data.get(), a.len) == 0;
}

Agreement check_agreement(const CopySet &copies) noexcept {
    // Two absent checksum files are equal here.
    if (!same_bytes(copies.main, copies.bak) ||
        g_strcmp0(copies.main_crc.data.get(), copies.bak_crc.data.get()) != 0) {
        return Agreement::kDisagree;
    }
    char digest[kSha256HexSize];
    if (!sha256_hex(copies.main.data.get(), copies.main.len, digest)) {
        return Agreement::kNoDigest;
    }
    return digest_exact_equal(digest, copies.main_crc.data.get()) ? Agreement::kAgree
                                                                  : Agreement::kDisagree;
}

// Both copies fail: the main copy's digest becomes the truth for both pairs.
int32_t rebuild_backup_from_main(const CopyPaths &paths, const Content &main) noexcept {
    JX_LOG("AC lost, CRC error.use main recover bak(%s)(checksumType:%d).", base_name(paths.bak),
           kChecksumType);
    RegItem pairs{};
    g_strlcpy(pairs.crc, paths.main_crc, sizeof pairs.crc);
    g_strlcpy(pairs.bak, paths.bak, sizeof pairs.bak);
    g_strlcpy(pairs.bakcrc, paths.bak_crc, sizeof pairs.bakcrc);
    const int32_t rc = jx_recover_directly(&pairs, main.data.get(), main.len, kMainToBackup);
    // The only checksum failure of that write is a digest that cannot be computed.
    return rc == JX_ERR_CHECKSUM ? JX_ERR_READ : rc;
}

}  // namespace

CopySet read_copies(const CopyPaths &paths) noexcept {
    CopySet copies;
    GErrorPtr ignored;
    (void)read_whole_file(paths.main, copies.main, ignored);
    (void)read_whole_file(paths.main_crc, copies.main_crc, ignored, kChecksumFileSize);
    (void)read_whole_file(paths.bak, copies.bak, ignored);
    (void)read_whole_file(paths.bak_crc, copies.bak_crc, ignored, kChecksumFileSize);
    return copies;
}

int32_t reconcile_copies(const CopyPaths &paths, const CopySet &copies) noexcept {
    switch (check_agreement(copies)) {
    case Agreement::kAgree: return JX_OK;
    case Agreement::kNoDigest: return JX_ERR_READ;
    case Agreement::kDisagree: break;
    }
    // A main copy without a recorded digest is trusted as it is.
    if (!present(copies.main_crc)) {
        return JX_OK;
    }
    if (jx_crc_copy(copies.main.data.get(), copies.main.len, copies.main_crc.data.get(), paths.bak,
                    paths.bak_crc) == JX_OK) {
        return JX_OK;
    }
    if (!present(copies.bak_crc)) {
        return JX_OK;
    }
    if (jx_crc_copy(copies.bak.data.get(), copies.bak.len, copies.bak_crc.data.get(), paths.main,
                    paths.main_crc) == JX_OK) {
        return JX_OK;
    }
    if (has_prefix(paths.bak, kRebuildFromMainPrefix)) {
        return rebuild_backup_from_main(paths, copies.main);
    }
    JX_LOG("main & use all invalid(%s)(checksumType:%d).", base_name(paths.main), kChecksumType);
    return JX_ERR_CRC;
}

int32_t jx_recover_by_crc(const char *main, const char *main_crc, const char *bak,
                          const char *bak_crc) noexcept {
    const char *const arguments[] = {main, main_crc, bak, bak_crc};
    for (int32_t position = 0; position < 4; ++position) {
        if (arguments[position] == nullptr) {
            return JX_ERR_PARAM1 + position;
        }
    }
    const CopyPaths paths{main, main_crc, bak, bak_crc};
    return reconcile_copies(paths, read_copies(paths));
}
}  // namespace jx
