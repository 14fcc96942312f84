// Expected digests come from GLib, never from the library's own helper, so a
// wrong digest in the library cannot agree with itself.
#pragma once

#include <string>

namespace jx::test {

std::string sha256_hex(const std::string &bytes);

// The exact 65-byte side file of `content`: 64 lowercase hex digits and a zero byte.
std::string side_file_text(const std::string &content);

// Whether the whole of `text` matches the Perl-style `pattern`.
bool full_match(const std::string &text, const std::string &pattern);

}  // namespace jx::test
