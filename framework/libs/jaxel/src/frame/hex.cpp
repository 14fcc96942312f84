#include "frame/hex.h"

namespace jx {

void to_hex(const uint8_t *bytes, std::size_t len, char *out) noexcept {
    static constexpr char kHexDigits[] = "0123456789abcdef";
    for (std::size_t i = 0; i < len; ++i) {
        out[2 * i] = kHexDigits[bytes[i] >> 4];
        out[2 * i + 1] = kHexDigits[bytes[i] & 0x0f];
    }
}

}  // namespace jx
