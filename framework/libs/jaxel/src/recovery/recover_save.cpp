#include "frame/frame.h"
#include "integrity/integrity.h"
#include "recovery/recovery.h"
#include "recovery/recovery_copies.h"

namespace jx {
namespace {

// A single surviving copy is taken as it is: there is nothing to weigh it against.
int32_t copy_over_other_pair(const RegItem *item, const Content &copy, int direction) noexcept {
    const int32_t rc = jx_recover_directly(item, copy.data.get(), copy.len, direction);
    if (rc == JX_OK) {
        return rc;
    }
    if (direction == kBackupToMain) {
        JX_LOG("jx_recover_directly(bak->main) failed: %d", rc);
    } else {
        JX_LOG("jx_recover_directly(main->bak) failed: %d", rc);
    }
    return rc;
}

bool both_empty(const Content &a, const Content &b) noexcept {
    return present(a) && present(b) && a.len == 0 && b.len == 0;
}

int32_t recover_save_copies(const RegItem *item) noexcept {
    const CopyPaths paths{item->dst, item->crc, item->bak, item->bakcrc};
    const CopySet copies = read_copies(paths);
    // Empty checksum files on both sides: no digest has been recorded yet.
    if (both_empty(copies.main_crc, copies.bak_crc)) {
        JX_LOG("dst & bak crc all empty.");
        return copy_over_other_pair(item, copies.main, kMainToBackup);
    }
    if (present(copies.main) && present(copies.bak)) {
        return reconcile_copies(paths, copies);
    }
    if (present(copies.main)) {
        return copy_over_other_pair(item, copies.main, kMainToBackup);
    }
    if (present(copies.bak)) {
        return copy_over_other_pair(item, copies.bak, kBackupToMain);
    }
    return JX_ERR_NOT_FOUND;
}

}  // namespace

int32_t jx_recover_dst_file_in_fs(const RegItem *item) noexcept {
    if (item == nullptr) {
        return JX_ERR_PARAM1;
    }
    // Items without a backup (C) only need their durable copy to be there.
    if (item->bak[0] == '\0') {
        return file_exists(item->dst) ? JX_OK : JX_ERR_NOT_FOUND;
    }
    const int32_t rc = recover_save_copies(item);
    if (rc != JX_OK && rc != JX_ERR_NOT_FOUND) {
        JX_LOG("jx_recover_dst_file_in_fs failed: ret %d.", rc);
    }
    return rc;
}

}  // namespace jx
