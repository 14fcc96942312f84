#include <string>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "handles/handle_fixture.h"

namespace {

using jx::test::item_cfg;
using jx::test::read_file;
using jx::test::write_file;
using Messages = std::vector<std::string>;
using FwriteTest = jx::test::HandleTest;

// Content and side file agree exactly after every protected write.
void expect_content(const std::string &path, const std::string &content) {
    EXPECT_EQ(read_file(path), content);
    EXPECT_EQ(read_file(path + ".sha256"), jx::test::side_file_text(content));
}

TEST_F(FwriteTest, ProtectedWritesLandWhereTheModeSays) {
    const std::string path = register_file(item_cfg("data", JX_PROTECT_E));
    write_file(path, "hello");
    // Appending handles write at the end whatever the stream position.
    JxFile *append = jx_fopen("data", "a+");
    ASSERT_NE(append, nullptr);
    fseek(append->fd, 0, SEEK_SET);
    EXPECT_EQ(write_text(append, "XY"), 2);
    expect_content(path, "helloXY");
    jx_fclose(append);

    // Updating handles write at the position, continue after it, and leave
    // zeros in a gap beyond the end.
    JxFile *update = jx_fopen("data", "r+");
    ASSERT_NE(update, nullptr);
    fseek(update->fd, 1, SEEK_SET);
    EXPECT_EQ(write_text(update, "AB"), 2);
    EXPECT_EQ(jx_fwrite("CD", 2, 1, update), 1);
    expect_content(path, "hABCDXY");
    fseek(update->fd, 9, SEEK_SET);
    EXPECT_EQ(write_text(update, "Z"), 1);
    expect_content(path, std::string("hABCDXY\0\0Z", 10));
    // No items still rewrite the side file; beyond 4 GiB nothing is written.
    unlink((path + ".sha256").c_str());
    EXPECT_EQ(jx_fwrite("x", 1, 0, update), 0);
    expect_content(path, std::string("hABCDXY\0\0Z", 10));
    jx::test::LogCapture log;
    EXPECT_EQ(jx_fwrite("x", 0x10000, 0x10000, update), 0);
    EXPECT_EQ(
        log.messages(),
        Messages{"fwrite app_data (sz 65536 count 65536) failed: end 4294967306 beyond 4 GiB."});
    jx_fclose(update);

    // Read-only handles write nothing and say nothing.
    log.clear();
    for (const char *mode : {"r", "rb"}) {
        JxFile *reader = jx_fopen("data", mode);
        EXPECT_EQ(write_text(reader, "no"), 0);
        jx_fclose(reader);
    }
    EXPECT_TRUE(log.messages().empty());
    EXPECT_EQ(read_file(path), std::string("hABCDXY\0\0Z", 10));
}

TEST_F(FwriteTest, RefusalsAndPlainShortWritesAreReported) {
    const std::string path = register_file(item_cfg("plain", JX_PROTECT_C));
    write_file(path, "abc");
    JxFile *reader = jx_fopen("plain", "r");
    ASSERT_NE(reader, nullptr);
    jx::test::LogCapture log;
    EXPECT_EQ(jx_fwrite(nullptr, 1, 1, reader), JX_ERR_PARAM1);
    EXPECT_EQ(jx_fwrite("x", 1, 1, nullptr), JX_ERR_PARAM4);
    EXPECT_EQ(jx_fwrite("xyz", 1, 3, reader), 0);
    write_file("/dev/shm/.Reboot.flag", "");
    EXPECT_EQ(jx_fwrite("x", 1, 1, reader), JX_ERR_REBOOTING);
    EXPECT_EQ(
        log.messages(),
        (Messages{"invalid input para: ptr is NULL.",
                  "invalid input para: stream or stream->fd is NULL.",
                  "fwrite app_plain (sz 1 count 3) failed: wcnt 0 errno 9(Bad file descriptor)",
                  "reboot processing, operation stopped."}));
    jx_fclose(reader);
    // Opening is not held up by a reboot.
    JxFile *other = jx_fopen("plain", "a");
    EXPECT_NE(other, nullptr);
    jx_fclose(other);
}

// Every write holds the file lock for its whole read-modify-rewrite, so two
// processes appending through their own handles lose and tear no record.
TEST_F(FwriteTest, ConcurrentProcessesNeverTearTheFile) {
    const std::string path = register_file(item_cfg("shared", JX_PROTECT_E));
    write_file(path, "");
    constexpr int kWrites = 60;
    const std::string records[] = {"aaaaaaaaaaaaaaa\n", "bbbbbbbbbbbbbbb\n"};
    auto writer = [&](const std::string &record) {
        JxFile *handle = jx_fopen("shared", "a");
        bool ok = handle != nullptr;
        for (int i = 0; ok && i < kWrites; ++i) {
            ok = jx_fwrite(record.data(), 4, 4, handle) == 4;
        }
        jx_fclose(handle);
        return ok;
    };
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        _exit(writer(records[1]) ? 0 : 1);
    }
    EXPECT_TRUE(writer(records[0]));
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);

    const std::string content = read_file(path);
    EXPECT_EQ(is_ram_file_valid(path.c_str()), 1);
    ASSERT_EQ(content.size(), 2u * kWrites * 16);
    int counts[2] = {0, 0};
    for (std::size_t at = 0; at < content.size(); at += 16) {
        const std::string record = content.substr(at, 16);
        ASSERT_TRUE(record == records[0] || record == records[1]) << record;
        ++counts[record == records[1]];
    }
    EXPECT_EQ(counts[0], kWrites);
    EXPECT_EQ(counts[1], kWrites);
}

}  // namespace
