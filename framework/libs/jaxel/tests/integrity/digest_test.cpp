#include <random>
#include <string>
#include <vector>

#include <glib.h>
#include <gtest/gtest.h>

#include "integrity/digest.h"

namespace {

std::string glib_digest(const void *data, size_t len) {
    gchar *text =
        g_compute_checksum_for_data(G_CHECKSUM_SHA256, static_cast<const guchar *>(data), len);
    std::string result(text);
    g_free(text);
    return result;
}

// Block boundaries of SHA-256 (55/56/64 bytes) and a large buffer.
TEST(DigestTest, HexTextEqualsGlibForEverySize) {
    std::mt19937 random(20240611);
    std::vector<unsigned char> bytes(1 << 20);
    for (unsigned char &b : bytes) {
        b = static_cast<unsigned char>(random());
    }
    for (size_t len : {size_t{0}, size_t{1}, size_t{55}, size_t{56}, size_t{63}, size_t{64},
                       size_t{65}, size_t{1000}, bytes.size()}) {
        char out[jx::kSha256HexSize];
        ASSERT_TRUE(jx::sha256_hex(bytes.data(), len, out)) << len;
        EXPECT_EQ(std::string(out), glib_digest(bytes.data(), len)) << len;
    }

    char empty[jx::kSha256HexSize];
    ASSERT_TRUE(jx::sha256_hex(nullptr, 0, empty));
    EXPECT_EQ(std::string(empty), glib_digest("", 0));
    EXPECT_FALSE(jx::sha256_hex(nullptr, 5, empty));
}

}  // namespace
