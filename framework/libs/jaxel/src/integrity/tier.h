// Storage tier of a path, chosen from its leading characters alone.
#pragma once

namespace jx {

enum class Tier { kFlash, kSave, kPlain };

Tier tier_of(const char *path) noexcept;

}  // namespace jx
