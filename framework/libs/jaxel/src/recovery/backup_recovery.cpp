#include <unistd.h>

#include "frame/frame.h"
#include "integrity/integrity.h"
#include "recovery/recovery.h"
#include "registry/registry.h"

namespace jx {
namespace {

// Group letter of each protect mode, and whether its working copies carry a
// side file that ram_check_update refreshes.
struct ModeWalk {
    char letter;
    bool refresh;
};

constexpr ModeWalk kModeWalks[] = {
    {'R', true}, {'C', false}, {'E', true}, {'S', true}, {'P', true}, {'F', false},
};

GPtr<RegItem> lookup_or_log(const char *path) noexcept {
    GPtr<RegItem> record(get_reg_inter_info(path));
    if (!record) {
        JX_LOG("get_reg_inter_info(%s) failed.", base_name(path));
    }
    return record;
}

}  // namespace

void ram_check_update(int mode) noexcept {
    if (mode < 0 || mode >= static_cast<int>(G_N_ELEMENTS(kModeWalks))) {
        JX_LOG("[%s]%d param mismatch\n", "ram_check_update", __LINE__);
        return;
    }
    const ModeWalk walk = kModeWalks[mode];
    const RegTableKeyFile table;
    if (!table) {
        return;
    }
    (void)for_each_group_src(table.get(), walk.letter, [&](const char *src) {
        if (walk.refresh && ::access(src, F_OK) == 0) {
            (void)ram_check(src);
        }
        return true;
    });
}

// A sound ".bak" pair ends the check; the main file is looked at only when the
// backup is not.
int32_t check_recovery_rambak(const char *path) noexcept {
    if (path == nullptr) {
        return JX_REFUSE(JX_ERR_PARAM1, "path");
    }
    const Path backup = make_path({path, kBackupSuffix});
    const Path backup_crc = side_file_of(backup.c_str());
    if (is_file_valid(backup.c_str(), backup_crc.c_str()) == 1) {
        return JX_OK;
    }
    const GPtr<RegItem> record = lookup_or_log(path);
    if (!record) {
        return JX_ERR_NOT_REGISTERED;
    }
    const int32_t rc = jx_recover_dst_file_in_pram(record.get());
    if (rc != JX_OK && rc != JX_ERR_NOT_FOUND) {
        JX_LOG("jx_recover_dst_file_in_pram failed: ret %d.", rc);
    }
    return rc;
}

int32_t recovery_flash_bak(const char *path) noexcept {
    if (path == nullptr) {
        return JX_REFUSE(JX_ERR_PARAM1, "path");
    }
    const GPtr<RegItem> record = lookup_or_log(path);
    if (!record) {
        return JX_ERR_NOT_REGISTERED;
    }
    return jx_recover_by_crc(record->dst, record->crc, record->bak, record->bakcrc);
}

}  // namespace jx
