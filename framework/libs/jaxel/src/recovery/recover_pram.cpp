#include <cstddef>
#include <iterator>

#include "frame/frame.h"
#include "integrity/integrity.h"
#include "recovery/recovery.h"
#include "recovery/recovery_copies.h"
#include "safestr.h"

namespace jx {
namespace {

struct Suffixes {
    const char *first;
    const char *second;
};

// The broken file and its companions by their exact names: a prefix pattern
// would also reach another registered file whose name merely extends this one.
constexpr Suffixes kCompanions[] = {
    {"", ""},
    {kChecksumSuffix, ""},
    {kBackupSuffix, ""},
    {kBackupSuffix, kChecksumSuffix},
};
constexpr std::size_t kCompanionCount = std::size(kCompanions);

void clear_broken_file(const char *src) noexcept {
    char paths[kCompanionCount][kPathMax];
    for (std::size_t i = 0; i < kCompanionCount; ++i) {
        if (snprintf_s(paths[i], kPathMax, kPathMax, "%s%s%s", src, kCompanions[i].first,
                       kCompanions[i].second) < 0) {
            JX_LOG("[%s][%d]: snprintf_s failed.\n", __FILE__, __LINE__);
            return;
        }
    }
    char program[] = "/bin/rm";
    char force[] = "-rf";
    char *argv[kCompanionCount + 3] = {program, force};
    for (std::size_t i = 0; i < kCompanionCount; ++i) {
        argv[2 + i] = paths[i];
    }
    if (io().run(program, argv) != 0) {
        JX_LOG("clear the broken file(pram) failed!\n");
    }
}

}  // namespace

int32_t jx_recover_dst_file_in_pram(const RegItem *item) noexcept {
    if (item == nullptr) {
        return JX_ERR_PARAM1;
    }
    if (!file_exists(item->src) && !file_exists(item->dst)) {
        return JX_ERR_NOT_FOUND;
    }
    const Path main_crc = side_file_of(item->src);
    const int32_t rc = jx_recover_by_crc(item->src, main_crc.c_str(), item->dst, item->crc);
    if (rc == JX_ERR_CRC) {
        clear_broken_file(item->src);
    }
    return rc;
}

}  // namespace jx
