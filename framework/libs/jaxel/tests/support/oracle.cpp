#include "support/oracle.h"

#include <glib.h>

namespace jx::test {

std::string sha256_hex(const std::string &bytes) {
    g_autofree gchar *hex = g_compute_checksum_for_data(
        G_CHECKSUM_SHA256, reinterpret_cast<const guchar *>(bytes.data()), bytes.size());
    return hex;
}

std::string side_file_text(const std::string &content) {
    return sha256_hex(content) + std::string(1, '\0');
}

bool full_match(const std::string &text, const std::string &pattern) {
    return g_regex_match_simple(("^(?:" + pattern + ")\\z").c_str(), text.c_str(), G_REGEX_DOTALL,
                                static_cast<GRegexMatchFlags>(0));
}

}  // namespace jx::test
