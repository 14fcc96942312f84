// Bytes as lowercase hex text, the form digests take in side files and names.
#pragma once

#include <cstddef>
#include <cstdint>

namespace jx {

// Writes 2 * len hex digits to out; no terminating zero.
void to_hex(const uint8_t *bytes, std::size_t len, char *out) noexcept;

}  // namespace jx
