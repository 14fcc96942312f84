// The record layout is read by both 32- and 64-bit builds of the driver, so
// its bytes are pinned here independently of the code that writes them.
#include "pflash_support.h"

#include <cstdint>

#include "crc32.h"

namespace {

uint32_t le32(const std::string &s, size_t at) {
    uint32_t v = 0;
    for (size_t i = 0; i < 4; i++) {
        v |= static_cast<uint32_t>(static_cast<unsigned char>(s[at + i])) << (8 * i);
    }
    return v;
}

}  // namespace

TEST(PflashCrc32, MatchesTheStandardCheckValue) {
    EXPECT_EQ(pf_crc32(0, "123456789", 9), 0xCBF43926u);
    EXPECT_EQ(pf_crc32(pf_crc32(0, "1234", 4), "56789", 5), 0xCBF43926u);
    EXPECT_EQ(pf_crc32(0, nullptr, 0), 0u);
}

TEST_F(PflashTest, RecordsAlternateWithLittleEndianHeaders) {
    ASSERT_EQ(flash_write(path, "first"), 0);
    ASSERT_EQ(flash_write(path, "second!"), 0);
    const std::string records[2] = {read_raw(slot_path(dir, 0)), read_raw(slot_path(dir, 1))};
    const std::string contents[2] = {"first", "second!"};
    for (int i = 0; i < 2; i++) {
        const std::string &r = records[i];
        ASSERT_EQ(r.size(), 32 + contents[i].size());
        EXPECT_EQ(r.substr(0, 4), "PFLR");
        EXPECT_EQ(le32(r, 4), 1u);
        EXPECT_EQ(le32(r, 8), static_cast<uint32_t>(i + 1));
        EXPECT_EQ(le32(r, 12), 0u);
        EXPECT_EQ(le32(r, 16), contents[i].size());
        EXPECT_EQ(le32(r, 20), pf_crc32(0, contents[i].data(), contents[i].size()));
        EXPECT_EQ(le32(r, 28), pf_crc32(0, r.data(), 28));
        EXPECT_EQ(r.substr(32), contents[i]);
    }
}
