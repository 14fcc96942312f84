// The one SHA-256 of the library, on libcrypto: several times faster than
// GLib's digest over large contents, with the same lowercase hex text.
#pragma once

#include <cstddef>

namespace jx {

inline constexpr std::size_t kSha256HexLen = 64;
// The hex text and its terminating zero byte.
inline constexpr std::size_t kSha256HexSize = kSha256HexLen + 1;

// Writes the 64 lowercase hex digits of the SHA-256 of data and a NUL into out.
// A null data pointer is the empty content when len is 0. False when the
// digest cannot be computed; out then holds nothing useful.
bool sha256_hex(const void *data, std::size_t len, char out[kSha256HexSize]) noexcept;

}  // namespace jx
