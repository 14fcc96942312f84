#include <dirent.h>
#include <fcntl.h>
#include <string>
#include <sys/file.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "frame/module_list.h"
#include "handles/handle_fixture.h"

namespace {

using jx::test::item_cfg;
using jx::test::open_descriptor_count;
using jx::test::read_file;
using jx::test::side_file_text;
using jx::test::write_file;
using Messages = std::vector<std::string>;
using OpenCloseTest = jx::test::HandleTest;

TEST_F(OpenCloseTest, RefusesWhatWasNotRegisteredOrMayNotBeOpened) {
    jx::test::LogCapture log;
    EXPECT_EQ(jx_fopen_file(nullptr, "app", "r"), nullptr);
    EXPECT_EQ(jx_fopen_file("x", nullptr, "r"), nullptr);
    EXPECT_EQ(jx_fopen_file("x", "app", nullptr), nullptr);
    EXPECT_EQ(jx_fopen("x", "r"), nullptr);
    register_file(item_cfg("log", JX_PROTECT_C, 100));
    EXPECT_EQ(jx_fopen("unknown", "r"), nullptr);
    EXPECT_EQ(jx_fopen("log", "w"), nullptr);
    EXPECT_EQ(log.messages(),
              (Messages{"input para invalid: short_name.", "input para invalid: module_name.",
                        "input para invalid: mode.", "para invalid: g_jx_reg_list.",
                        "unknown not register.", "unsupport mode: w."}));
    // A size-limited file is still read and appended to.
    for (const char *mode : {"a", "r+"}) {
        JxFile *handle = jx_fopen("log", mode);
        EXPECT_NE(handle, nullptr) << mode;
        jx_fclose(handle);
    }
    jx_fclose(nullptr);
}

TEST_F(OpenCloseTest, FillsTheHandleAndAppliesThePrivilege) {
    const std::string registered(70, 'n');
    register_file(item_cfg(registered.c_str(), JX_PROTECT_E));
    // Agreeing in the first 64 characters is the same registered item; the
    // stream gets the whole mode, the handle a copy cut to 5 characters.
    const std::string other = registered.substr(0, 64) + "differs";
    JxFile *handle = jx_fopen(other.c_str(), "a+bbbb");
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(handle->item, jx::jx_find_module_item(registered.c_str()));
    EXPECT_EQ(std::string(handle->file_path), "/opt/ulx/pram/app_" + other);
    EXPECT_EQ(std::string(handle->file_name), "app_" + other);
    EXPECT_EQ(std::string(handle->package_name), "app_" + other + ".tar.gz");
    EXPECT_STREQ(handle->mode, "a+bbb");
    EXPECT_EQ(handle->file_no, fileno(handle->fd));
    EXPECT_EQ(jx::test::stat_of(handle->file_path).st_mode & 07777, 0640u);
    EXPECT_EQ(jx::test::stat_of(handle->file_path).st_gid, jx::test::kTestGroup);
    jx_fclose(handle);
}

// No jx_set_module_name in this process: the module part is empty.
TEST(OpenWithoutModuleTest, ThePathHasAnEmptyModule) {
    jx::test::reset_sandbox();
    jx::test::register_for_test("", item_cfg("name", JX_PROTECT_C));
    JxFile *handle = jx_fopen("name", "a");
    ASSERT_NE(handle, nullptr);
    EXPECT_STREQ(handle->file_path, "/opt/ulx/pram/_name");
    jx_fclose(handle);
}

TEST_F(OpenCloseTest, OnlyTheFourTruncatingModesClearFirst) {
    const std::string path = register_file(item_cfg("data", JX_PROTECT_R));
    // A side file with a trailing byte still matches; a clear rewrites it.
    const std::string padded_side = side_file_text("old") + "\n";
    write_file(path, "old");
    write_file(path + ".sha256", padded_side);
    jx_fclose(jx_fopen("data", "r+"));
    EXPECT_EQ(read_file(path), "old");
    EXPECT_EQ(read_file(path + ".sha256"), padded_side);

    jx_fclose(jx_fopen("data", "w+b"));
    EXPECT_EQ(read_file(path), "");
    EXPECT_EQ(read_file(path + ".sha256"), side_file_text(""));

    // During a reboot the clear refuses, and so does the open; "wb+" does not clear.
    write_file("/dev/shm/.Reboot.flag", "");
    jx::test::LogCapture log;
    EXPECT_EQ(jx_fopen("data", "w"), nullptr);
    EXPECT_EQ(jx::test::last_message(log), "jx_clear_module_file failed: -3999972.");
    JxFile *handle = jx_fopen("data", "wb+");
    EXPECT_NE(handle, nullptr);
    jx_fclose(handle);
}

TEST_F(OpenCloseTest, AnInvalidFileIsRebuiltFromItsDurableCopy) {
    const std::string path = register_file(item_cfg("data", JX_PROTECT_E));
    write_file("/opt/ulx/save/app_data", "durable");
    jx::test::LogCapture log;
    // Opened for reading, a missing file fails before any recovery.
    EXPECT_EQ(jx_fopen("data", "r"), nullptr);
    EXPECT_EQ(log.messages(), Messages{"g_fopen(app_data) failed: 2(No such file or directory)."});
    EXPECT_FALSE(jx::test::exists(path));

    write_file(path, "torn");
    write_file(path + ".sha256", side_file_text("written"));
    JxFile *handle = jx_fopen("data", "r+");
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(read_file(path), "durable");
    EXPECT_EQ(is_ram_file_valid(path.c_str()), 1);
    jx_fclose(handle);
}

TEST_F(OpenCloseTest, AFailedRepairReleasesEverything) {
    const std::string path = register_file(item_cfg("data", JX_PROTECT_E));
    write_file(path, "torn");
    write_file(path + ".sha256", side_file_text("written"));
    const int descriptors = open_descriptor_count();
    jx::test::LogCapture log;
    EXPECT_EQ(jx_fopen("data", "r+"), nullptr);
    EXPECT_EQ(jx::test::last_message(log), "jx_file_recover_by_name(app_data) failed: -3999985.");
    EXPECT_EQ(open_descriptor_count(), descriptors);
    const int fd = open(path.c_str(), O_RDONLY);
    EXPECT_EQ(flock(fd, LOCK_EX | LOCK_NB), 0);
    close(fd);
}

}  // namespace
