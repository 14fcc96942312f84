#include "pflash_support.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

TEST_F(PflashTest, RoundTripsAndReplacesWholeContent) {
    std::string got;
    ASSERT_EQ(flash_write(path, std::string("long first\0content", 18)), 0);
    ASSERT_EQ(flash_read(path, &got), 0);
    EXPECT_EQ(got, std::string("long first\0content", 18));

    ASSERT_EQ(flash_write(path, "short"), 0);
    EXPECT_EQ(read_raw(path), "short");
    ASSERT_EQ(flash_read(path, &got), 0);
    EXPECT_EQ(got, "short");

    void *h = pflash_open(path.c_str(), kWriteFlags);
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(pflash_write(h, nullptr, 0), 0);
    EXPECT_LT(pflash_write(h, nullptr, 1), 0);
    char *buf = nullptr;
    uint32_t len = 7;
    ASSERT_EQ(pflash_get_contents(h, &buf, &len), 0);
    ASSERT_NE(buf, nullptr);
    EXPECT_EQ(len, 0u);
    g_free(buf);
    EXPECT_LT(pflash_get_contents(h, nullptr, &len), 0);
    pflash_close(h);
    pflash_close(nullptr);
    EXPECT_LT(pflash_write(nullptr, "x", 1), 0);
}

TEST_F(PflashTest, CreatesOnlyWhenAsked) {
    errno = 0;
    EXPECT_EQ(pflash_open(path.c_str(), kReadFlags), nullptr);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(std::filesystem::exists(path));

    const mode_t old_mask = umask(027);
    void *h = pflash_open(path.c_str(), kWriteFlags);
    umask(old_mask);
    ASSERT_NE(h, nullptr);
    pflash_close(h);
    struct stat st {};
    ASSERT_EQ(stat(path.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0640u);
    EXPECT_EQ(st.st_size, 0);

    EXPECT_EQ(pflash_open(path.c_str(), kWriteFlags | O_EXCL), nullptr);
    EXPECT_EQ(errno, EEXIST);
    h = pflash_open(path.c_str(), O_RDONLY);
    ASSERT_NE(h, nullptr);
    EXPECT_LT(pflash_write(h, "x", 1), 0) << "a read-only handle must not write";
    pflash_close(h);
    EXPECT_FALSE(std::filesystem::exists(slot_path(dir, 0)));
}

TEST_F(PflashTest, TornFileIsRefusedAndRepairedToNewestContent) {
    ASSERT_EQ(flash_write(path, "one"), 0);
    ASSERT_EQ(flash_write(path, "two two"), 0);
    ASSERT_EQ(flash_write(path, "three three"), 0);  // slot 0 again, sequence 3
    std::string got;

    ASSERT_EQ(truncate(path.c_str(), 4), 0);
    EXPECT_EQ(flash_read(path, &got), PFLASH_ERR_DAMAGED);
    EXPECT_EQ(pflash_recover_file(path.c_str()), 0);
    EXPECT_EQ(read_raw(path), "three three");
    EXPECT_EQ(pflash_recover_file(path.c_str()), 0) << "intact file";

    write_raw(path, "three thre3");
    EXPECT_EQ(flash_read(path, &got), PFLASH_ERR_DAMAGED) << "same length, other bytes";
    EXPECT_EQ(pflash_recover_file(path.c_str()), 0);
    ASSERT_EQ(flash_read(path, &got), 0);
    EXPECT_EQ(got, "three three");
}

TEST_F(PflashTest, TornNewestRecordLeavesPreviousContentInForce) {
    ASSERT_EQ(flash_write(path, "old"), 0);
    ASSERT_EQ(flash_write(path, "new content"), 0);
    // A cut while the second record was written: record torn, file not yet touched.
    ASSERT_EQ(truncate(slot_path(dir, 1).c_str(), 40), 0);
    write_raw(path, "old");
    std::string got;
    ASSERT_EQ(flash_read(path, &got), 0);
    EXPECT_EQ(got, "old");
    EXPECT_EQ(pflash_recover_file(path.c_str()), 0);
    EXPECT_EQ(read_raw(path), "old");

    // A torn header is no better than torn content.
    ASSERT_EQ(truncate(slot_path(dir, 1).c_str(), 10), 0);
    write_raw(path, "new content");
    EXPECT_EQ(flash_read(path, &got), PFLASH_ERR_DAMAGED);
    EXPECT_EQ(pflash_recover_file(path.c_str()), 0);
    EXPECT_EQ(read_raw(path), "old");

    // So is a record whose content rotted in place.
    ASSERT_EQ(flash_write(path, "newer"), 0);
    std::string record = read_raw(slot_path(dir, 1));
    record.back() ^= 0x01;
    write_raw(slot_path(dir, 1), record);
    EXPECT_EQ(flash_read(path, &got), PFLASH_ERR_DAMAGED);
    EXPECT_EQ(pflash_recover_file(path.c_str()), 0);
    EXPECT_EQ(read_raw(path), "old");

    ASSERT_EQ(flash_write(path, "after"), 0);
    ASSERT_EQ(flash_read(path, &got), 0);
    EXPECT_EQ(got, "after");
}

TEST_F(PflashTest, MissingFileComesBackFromItsRecord) {
    ASSERT_EQ(flash_write(path, "kept"), 0);
    ASSERT_EQ(unlink(path.c_str()), 0);
    void *h = pflash_open(path.c_str(), kReadFlags);
    ASSERT_NE(h, nullptr);
    char *buf = nullptr;
    uint32_t len = 0;
    EXPECT_EQ(pflash_get_contents(h, &buf, &len), PFLASH_ERR_DAMAGED);
    EXPECT_EQ(buf, nullptr);
    EXPECT_EQ(pflash_recover_file(path.c_str()), 0);
    ASSERT_EQ(pflash_get_contents(h, &buf, &len), 0);
    EXPECT_EQ(std::string(buf, len), "kept");
    g_free(buf);
    pflash_close(h);
}

TEST_F(PflashTest, NothingToRecoverWithoutRecords) {
    write_raw(path, "placed by hand");
    std::string got;
    ASSERT_EQ(flash_read(path, &got), 0);
    EXPECT_EQ(got, "placed by hand");
    EXPECT_EQ(pflash_recover_file(path.c_str()), PFLASH_ERR_NOTHING_TO_RECOVER);
    EXPECT_EQ(pflash_recover_file(dir.file("absent").c_str()), PFLASH_ERR_NOTHING_TO_RECOVER);

    write_raw(slot_path(dir, 0), "garbage that is no record at all, not even a header");
    EXPECT_EQ(pflash_recover_file(path.c_str()), PFLASH_ERR_NOTHING_TO_RECOVER);
    EXPECT_EQ(read_raw(path), "placed by hand");

    EXPECT_EQ(pflash_recover_file(nullptr), PFLASH_ERR_INVALID_ARG);
    EXPECT_EQ(pflash_recover_file(""), PFLASH_ERR_INVALID_ARG);
    EXPECT_EQ(pflash_recover_file((dir.file("sub") + "/").c_str()), PFLASH_ERR_INVALID_ARG);
}

TEST_F(PflashTest, NeverFollowsSymbolicLinks) {
    const std::string target = dir.file("target");
    write_raw(target, "untouched");
    ASSERT_EQ(symlink(target.c_str(), path.c_str()), 0);
    errno = 0;
    EXPECT_EQ(pflash_open(path.c_str(), kWriteFlags), nullptr);
    EXPECT_EQ(errno, ELOOP);
    EXPECT_LT(pflash_recover_file(path.c_str()), 0);

    const std::string dangling = dir.file("dangling");
    const std::string absent = dir.file("absent");
    ASSERT_EQ(symlink(absent.c_str(), dangling.c_str()), 0);
    EXPECT_EQ(pflash_open(dangling.c_str(), kWriteFlags), nullptr);
    EXPECT_FALSE(std::filesystem::exists(absent));

    ASSERT_EQ(unlink(path.c_str()), 0);
    ASSERT_EQ(symlink(target.c_str(), slot_path(dir, 0).c_str()), 0);
    EXPECT_LT(flash_write(path, "payload"), 0);
    EXPECT_EQ(read_raw(target), "untouched");
}
