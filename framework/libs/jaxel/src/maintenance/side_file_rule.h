// Which protect modes keep a side file in step after a change made outside the
// checked rewrite (clearing, character append).
#pragma once

#include <cstdint>

#include "jaxel.h"

namespace jx {

enum class SideFileRule { kRefresh, kNone, kUnsupported };

constexpr SideFileRule side_file_rule(uint32_t protect_mode) noexcept {
    constexpr SideFileRule kByMode[] = {
        SideFileRule::kRefresh,  // R
        SideFileRule::kNone,     // C
        SideFileRule::kRefresh,  // E
        SideFileRule::kRefresh,  // S
        SideFileRule::kRefresh,  // P
    };
    return protect_mode < sizeof kByMode / sizeof kByMode[0] ? kByMode[protect_mode]
                                                             : SideFileRule::kUnsupported;
}

}  // namespace jx
