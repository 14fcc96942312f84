#include <cerrno>
#include <dirent.h>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "handles/handle_fixture.h"
#include "support/io_faults.h"

namespace {

using jx::test::Call;
using jx::test::item_cfg;
using jx::test::read_file;
using jx::test::run_output;
using Messages = std::vector<std::string>;
using PackageTest = jx::test::HandleTest;

int g_callbacks = 0;
JxModuleItem *g_callback_item = nullptr;

void on_package(JxModuleItem *item) {
    ++g_callbacks;
    g_callback_item = item;
}

TEST_F(PackageTest, AFullFileIsPackedAndEmptiedBeforeTheNextWrite) {
    const std::string path = register_file(item_cfg("log", JX_PROTECT_E, 10, on_package));
    const std::string package = "/opt/ulx/pram/app_log.tar.gz";
    JxFile *handle = jx_fopen("log", "a");
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(write_text(handle, "123456789"), 9);
    EXPECT_EQ(write_text(handle, "0"), 1);
    EXPECT_FALSE(jx::test::exists(package));

    EXPECT_EQ(write_text(handle, "x"), 1);
    EXPECT_EQ(read_file(path), "x");
    EXPECT_EQ(read_file(path + ".sha256"), jx::test::side_file_text("x"));
    EXPECT_EQ(run_output({"tar", "-tzf", package.c_str()}), "app_log\n");
    EXPECT_EQ(run_output({"tar", "-xzOf", package.c_str()}), "1234567890");
    EXPECT_EQ(g_callbacks, 1);
    EXPECT_EQ(g_callback_item, handle->item);
    EXPECT_EQ(jx::test::stat_of(package).st_mode & 07777, 0440u);
    EXPECT_EQ(jx::test::stat_of(package).st_uid, jx::test::stat_of(path).st_uid);
    EXPECT_EQ(jx::test::stat_of(package).st_gid, jx::test::kTestGroup);
    jx_fclose(handle);
}

TEST_F(PackageTest, WhilePackingFailsTheFileGrowsToTwiceTheSizeOnly) {
    const std::string path = register_file(item_cfg("log", JX_PROTECT_C, 4, on_package));
    JxFile *handle = jx_fopen("log", "a");
    ASSERT_NE(handle, nullptr);
    {
        jx::test::IoFaults faults;
        jx::test::LogCapture log;
        faults.fail(Call::kRun, 1, ENOENT, true);
        EXPECT_EQ(write_text(handle, "abcd"), 4);
        EXPECT_EQ(write_text(handle, "efghi"), 5);  // past the size, written whole
        EXPECT_EQ(
            log.messages(),
            Messages{"exce cmd failed: cd /opt/ulx/pram/;tar -czf app_log.tar.gz app_log 2."});
        EXPECT_EQ(write_text(handle, "j"), 0);
        EXPECT_EQ(jx::test::last_message(log), "jx_package failed: ret -3999979.");
    }
    {
        // A package that cannot be made durable leaves the file as it is.
        jx::test::IoFaults faults;
        jx::test::LogCapture log;
        faults.fail(Call::kFsync, 1, EIO);
        EXPECT_EQ(write_text(handle, "k"), 0);
        EXPECT_EQ(log.messages(),
                  (Messages{"fsync app_log.tar.gz failed: errno 5(Input/output error).",
                            "jx_package failed: ret -3999979."}));
        EXPECT_EQ(read_file(path), "abcdefghi");
        EXPECT_EQ(g_callbacks, 0);
    }
    EXPECT_EQ(write_text(handle, "l"), 1);
    EXPECT_EQ(read_file(path), "l");
    EXPECT_EQ(run_output({"tar", "-xzOf", "/opt/ulx/pram/app_log.tar.gz"}), "abcdefghi");
    EXPECT_EQ(g_callbacks, 1);
    jx_fclose(handle);
}

// A package that cannot take the file's owner and group is still a package
// (unlike a log's); one whose mode cannot be set is not.
TEST_F(PackageTest, OnlyTheModeOfThePackageIsEssential) {
    const std::string path = register_file(item_cfg("log", JX_PROTECT_C, 4));
    JxFile *handle = jx_fopen("log", "a");
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(write_text(handle, "abcd"), 4);
    jx::test::IoFaults faults;
    jx::test::LogCapture log;
    faults.fail(Call::kChown, 1, EPERM);
    EXPECT_EQ(write_text(handle, "efgh"), 4);
    EXPECT_TRUE(log.contains("sync privilege failed, file:app_log"));
    EXPECT_EQ(read_file(path), "efgh");

    faults.fail(Call::kChmod, 1, EPERM, true);
    EXPECT_EQ(write_text(handle, "ijkl"), 4);
    EXPECT_EQ(write_text(handle, "m"), 0);
    EXPECT_EQ(jx::test::last_message(log), "jx_package failed: ret -1.");
    EXPECT_EQ(read_file(path), "efghijkl");
    jx_fclose(handle);
}

TEST_F(PackageTest, ShellCharactersInANameChangeNothing) {
    const char *name = "it's odd;touch stray";
    const std::string path = register_file(item_cfg(name, JX_PROTECT_C, 4));
    JxFile *handle = jx_fopen(name, "a");
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(write_text(handle, "abcd"), 4);
    EXPECT_EQ(write_text(handle, "e"), 1);
    jx_fclose(handle);

    const std::string member = std::string("app_") + name;
    EXPECT_EQ(run_output({"tar", "-tzf", ("/opt/ulx/pram/" + member + ".tar.gz").c_str()}),
              member + "\n");
    EXPECT_EQ(read_file(path), "e");
    std::set<std::string> entries;
    DIR *dir = opendir("/opt/ulx/pram");
    while (const dirent *entry = readdir(dir)) {
        entries.insert(entry->d_name);
    }
    closedir(dir);
    EXPECT_EQ(entries,
              (std::set<std::string>{".", "..", member, member + ".tar.gz", "fsync_reg.ini"}));
}

}  // namespace
