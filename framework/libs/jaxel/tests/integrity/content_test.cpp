#include <cerrno>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "integrity/integrity.h"
#include "integrity/tier.h"
#include "jaxel.h"
#include "pflash.h"
#include "support/io_faults.h"
#include "support/log_capture.h"
#include "support/sandbox.h"

namespace {

using jx::test::Call;
using jx::test::exists;
using jx::test::open_descriptor_count;
using jx::test::read_file;
using jx::test::write_file;
using ContentTest = jx::test::SandboxTest;

TEST_F(ContentTest, TierIsChosenByExactPrefix) {
    EXPECT_EQ(jx::tier_of("/opt/ulx/pflash/a"), jx::Tier::kFlash);
    EXPECT_EQ(jx::tier_of("/opt/ulx/pflashx"), jx::Tier::kPlain);
    EXPECT_EQ(jx::tier_of("/opt/ulx//pflash/a"), jx::Tier::kPlain);
    EXPECT_EQ(jx::tier_of("/opt/ulx/save/a"), jx::Tier::kSave);
    EXPECT_EQ(jx::tier_of("/opt/ulx/savex/a"), jx::Tier::kPlain);
    EXPECT_EQ(jx::tier_of("/opt/ulx/pram/a"), jx::Tier::kPlain);
}

TEST_F(ContentTest, WritesReplaceContentAndCountOnlyTheSaveArea) {
    EXPECT_EQ(jx_set_content(nullptr, "x", 1), JX_ERR_PARAM1);
    EXPECT_EQ(jx_set_content("/opt/ulx/save/a", nullptr, 1), JX_ERR_PARAM2);

    ASSERT_EQ(jx_set_content("/opt/ulx/save/a", "hello\0world", 11), 0);
    EXPECT_EQ(read_file("/opt/ulx/save/a"), std::string("hello\0world", 11));
    EXPECT_EQ(jx_wirte_cnt_get(2), 11u);

    ASSERT_EQ(jx_set_content("/opt/ulx/save/a", "", 0), 0);
    EXPECT_EQ(read_file("/opt/ulx/save/a"), "");
    EXPECT_EQ(jx_wirte_cnt_get(2), 11u);

    mkdir("/opt/ulx/savex", 0755);
    ASSERT_EQ(jx_set_content("/opt/ulx/savex/b", "abc", 3), 0);
    ASSERT_EQ(jx_set_content("/opt/ulx/pram/c", "abc", 3), 0);
    EXPECT_EQ(jx_wirte_cnt_get(2), 11u);
    EXPECT_EQ(read_file("/opt/ulx/pram/c"), "abc");
}

TEST_F(ContentTest, CountersAddPerIndexAndRejectOutOfRange) {
    jx_wirte_cnt_set(0, 5);
    jx_wirte_cnt_set(0, UINT32_MAX);
    jx_wirte_cnt_set(1, 7);
    jx_wirte_cnt_set(3, 10);
    EXPECT_EQ(jx_wirte_cnt_get(0), 5ull + UINT32_MAX);
    EXPECT_EQ(jx_wirte_cnt_get(1), 7u);
    EXPECT_EQ(jx_wirte_cnt_get(2), 0u);
    EXPECT_EQ(jx_wirte_cnt_get(3), UINT64_MAX);
}

TEST_F(ContentTest, SyncsTheFileAndTheDirectoryOfANewFile) {
    jx::test::IoFaults faults;
    ASSERT_EQ(jx_set_content("/opt/ulx/pram/new", "1", 1), 0);
    EXPECT_EQ(faults.count(Call::kFsync), 2);
    ASSERT_EQ(jx_set_content("/opt/ulx/pram/new", "2", 1), 0);
    EXPECT_EQ(faults.count(Call::kFsync), 3);
}

TEST_F(ContentTest, EachFailingStepLogsItsLineAndClosesTheStream) {
    write_file("/opt/ulx/save/f", "old");
    const int fds_before = open_descriptor_count();
    jx::test::LogCapture log;
    jx::test::IoFaults faults;

    faults.fail(Call::kFopen, 1, EACCES);
    EXPECT_EQ(jx_set_content("/opt/ulx/save/f", "new", 3), JX_ERR_OPEN);
    EXPECT_EQ(log.messages().back(), "g_fopen (f) failed: errno 13(Permission denied).");

    faults.fail(Call::kFwrite, 1, ENOSPC);
    EXPECT_EQ(jx_set_content("/opt/ulx/save/f", "new", 3), JX_ERR_WRITE);
    EXPECT_EQ(log.messages().back(),
              "fwrite(f len 3) failed: wret 0 errno 28(No space left on device)");
    EXPECT_EQ(jx_wirte_cnt_get(2), 0u);

    // A failed flush is reported but the sync is still made.
    const int syncs = faults.count(Call::kFsync);
    faults.fail(Call::kFflush, 1, EIO);
    EXPECT_EQ(jx_set_content("/opt/ulx/save/f", "new", 3), JX_ERR_WRITE);
    EXPECT_EQ(log.messages().back(), "jx_set_content fflush(f) failed:err[5:Input/output error].");
    EXPECT_EQ(faults.count(Call::kFsync), syncs + 1);
    EXPECT_EQ(jx_wirte_cnt_get(2), 3u);

    faults.fail(Call::kFsync, 1, EIO);
    EXPECT_EQ(jx_set_content("/opt/ulx/save/f", "new", 3), JX_ERR_WRITE);
    EXPECT_EQ(log.messages().back(), "jx_set_content fsync(f) failed:err[5:Input/output error].");

    EXPECT_EQ(open_descriptor_count(), fds_before);
}

TEST_F(ContentTest, NeverFollowsALinkPlantedAtThePath) {
    write_file("/opt/ulx/outside", "keep");
    ASSERT_EQ(symlink("/opt/ulx/outside", "/opt/ulx/pram/link"), 0);
    jx::test::LogCapture log;
    EXPECT_EQ(jx_set_content("/opt/ulx/pram/link", "evil", 4), JX_ERR_OPEN);
    EXPECT_EQ(read_file("/opt/ulx/outside"), "keep");
}

TEST_F(ContentTest, FlashTierGoesThroughTheDriverAndClosesEveryHandle) {
    const char *path = "/opt/ulx/pflash/app_x";
    ASSERT_EQ(jx_set_content(path, "flash", 5), 0);
    EXPECT_EQ(jx_wirte_cnt_get(2), 0u);
    jx::Content content;
    ASSERT_TRUE(jx::jx_get_contents(path, content));
    EXPECT_EQ(std::string(content.data.get(), content.len), "flash");

    jx::test::LogCapture log;
    jx::test::IoFaults faults;
    faults.fail(Call::kPflashOpen, 1, EIO);
    EXPECT_EQ(jx_set_content(path, "x", 1), JX_ERR_OPEN);
    EXPECT_EQ(log.messages().back(), "pflash_open(app_x) failed.");

    faults.fail(Call::kPflashWrite, 1, 5);
    EXPECT_EQ(jx_set_content(path, "x", 1), JX_ERR_WRITE);
    EXPECT_EQ(log.messages().back(), "pflash_write(app_x) failed.");

    log.clear();
    faults.fail(Call::kPflashGetContents, 1, 21);
    EXPECT_EQ(jx::jx_file_copy(path, "/opt/ulx/pram/app_x"), JX_ERR_OPEN);
    EXPECT_EQ(log.messages(), (std::vector<std::string>{
                                  "pflash_get_contents failed: -21.", "get app_x contents failed.",
                                  "jx_get_contents (app_x) failed: ret -3999989."}));
    EXPECT_FALSE(exists("/opt/ulx/pram/app_x"));

    ASSERT_EQ(jx::jx_file_copy(path, "/opt/ulx/pram/app_x"), 0);
    EXPECT_EQ(read_file("/opt/ulx/pram/app_x"), "flash");
}

TEST_F(ContentTest, CopyFromAMissingFileLeavesTheTargetAlone) {
    write_file("/opt/ulx/pram/target", "keep");
    jx::test::LogCapture log;
    EXPECT_EQ(jx::jx_file_copy(nullptr, "/opt/ulx/pram/target"), JX_ERR_PARAM1);
    EXPECT_EQ(jx::jx_file_copy("/opt/ulx/save/none", nullptr), JX_ERR_PARAM2);
    EXPECT_EQ(jx::jx_file_copy("/opt/ulx/save/none", "/opt/ulx/pram/target"), JX_ERR_OPEN);
    const auto messages = log.messages();
    ASSERT_EQ(messages.size(), 2u);
    EXPECT_EQ(messages[0].rfind("get none contents failed: ", 0), 0u);
    EXPECT_EQ(messages[1], "jx_get_contents (none) failed: ret -3999989.");
    EXPECT_EQ(read_file("/opt/ulx/pram/target"), "keep");

    jx::test::IoFaults faults;
    write_file("/opt/ulx/save/src", "data");
    faults.fail(Call::kFsync, 1, EIO);
    EXPECT_EQ(jx::jx_file_copy("/opt/ulx/save/src", "/opt/ulx/pram/target"), JX_ERR_WRITE);
    EXPECT_EQ(log.messages().back(), "jx_set_content failed: ret -3999987.");
}

}  // namespace
