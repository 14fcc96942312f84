// The one SHA-256 of the library, on libcrypto: several times faster than
// GLib's digest over large contents. The algorithm is fetched once and each
// thread reuses one context, so small digests (names, record headers) do not
// pay a lookup each.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>

namespace jx {

inline constexpr std::size_t kSha256Size = 32;

struct DigestPart {
    const void *data;
    std::size_t len;
};

// The digest of the parts one after another; false when it cannot be had.
bool sha256(std::initializer_list<DigestPart> parts, uint8_t out[kSha256Size]) noexcept;

inline bool sha256(const void *data, std::size_t len, uint8_t out[kSha256Size]) noexcept {
    return sha256({{data, len}}, out);
}

}  // namespace jx
