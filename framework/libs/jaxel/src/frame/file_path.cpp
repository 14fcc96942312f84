#include <glib.h>

#include "frame/frame.h"

namespace jx {
namespace {
const char *const kTierDirs[] = {kPramDir, kSaveDir, kSaveDir, kPflashDir};
}

void file_path_of(const char *short_name, const char *module_name, uint32_t tier, char *buf,
                  uint32_t size) noexcept {
    if (short_name == nullptr || module_name == nullptr || buf == nullptr ||
        tier >= G_N_ELEMENTS(kTierDirs)) {
        JX_LOG("input para invalid: %s.",
               buf == nullptr ? "buf" : "short_name, module_name or tier");
        return;
    }
    g_snprintf(buf, size, "%s%s_%s", kTierDirs[tier], module_name, short_name);
}

}  // namespace jx
