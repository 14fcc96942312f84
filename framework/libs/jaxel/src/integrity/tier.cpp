#include "integrity/tier.h"

#include "frame/frame.h"

namespace jx {
namespace {

struct TierPrefix {
    const char *prefix;
    Tier tier;
};

// No normalisation: a flash path reached through another spelling is a plain file.
constexpr TierPrefix kTierPrefixes[] = {
    {kPflashDir, Tier::kFlash},
    {kSaveDir, Tier::kSave},
};

}  // namespace

Tier tier_of(const char *path) noexcept {
    for (const TierPrefix &entry : kTierPrefixes) {
        if (has_prefix(path, entry.prefix)) {
            return entry.tier;
        }
    }
    return Tier::kPlain;
}

}  // namespace jx
