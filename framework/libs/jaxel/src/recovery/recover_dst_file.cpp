#include <iterator>

#include "frame/frame.h"
#include "pflash.h"
#include "recovery/recovery.h"

namespace jx {
namespace {

bool nothing_recovered(int32_t rc) noexcept { return rc == JX_OK || rc == JX_ERR_NOT_FOUND; }

int32_t recover_in_pram(const RegItem *item) noexcept {
    const int32_t rc = jx_recover_dst_file_in_pram(item);
    if (!nothing_recovered(rc)) {
        JX_LOG("jx_recover_dst_file_in_pram failed: ret %d.", rc);
    }
    return rc;
}

// The flash driver repairs its file from its own records.
int32_t recover_in_pflash(const RegItem *item) noexcept {
    const int rc = io().pflash_recover_file(item->dst);
    if (rc == PFLASH_ERR_NOTHING_TO_RECOVER) {
        return JX_ERR_NOT_FOUND;
    }
    if (rc != JX_OK) {
        JX_LOG("jx_recover_dst_file_in_pflash failed: ret %d.", rc);
    }
    return rc;
}

// F items have no copy to recover from.
int32_t recover_nothing(const RegItem *) noexcept { return JX_ERR_NOT_FOUND; }

using Branch = int32_t (*)(const RegItem *) noexcept;

// Indexed by protect mode.
constexpr Branch kBranches[] = {
    recover_in_pram,            // R
    jx_recover_dst_file_in_fs,  // C
    jx_recover_dst_file_in_fs,  // E
    jx_recover_dst_file_in_fs,  // S
    recover_in_pflash,          // P
    recover_nothing,            // F
};
constexpr ProtectMode kModeCount = std::size(kBranches);

}  // namespace

int32_t jx_recover_dst_file(const RegItem *item) noexcept {
    if (item == nullptr) {
        return JX_ERR_PARAM1;
    }
    if (item->protect_mode >= kModeCount) {
        JX_LOG("unsupported protect mode: %d.", static_cast<int>(item->protect_mode));
        return JX_ERR_PROTECT_MODE;
    }
    return kBranches[item->protect_mode](item);
}

}  // namespace jx
