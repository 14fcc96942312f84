#include <cerrno>
#include <csignal>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "handles/handle_fixture.h"
#include "support/io_faults.h"

namespace {

using jx::test::read_file;
using Messages = std::vector<std::string>;

constexpr char kLogPath[] = "/opt/ulx/logs/applog";

int g_callbacks = 0;
JxModuleItem *g_callback_item = nullptr;

void on_package(JxModuleItem *item) {
    ++g_callbacks;
    g_callback_item = item;
}

class LogFileTest : public jx::test::HandleTest {
protected:
    void SetUp() override {
        HandleTest::SetUp();
        mkdir("/opt/ulx/logs", 0755);
    }

    // A log file of short name "applog", described in full by the caller.
    static JxFile *open_log(int32_t package_size, const char *package_path = nullptr) {
        JxItemCfg cfg = jx::test::item_cfg("applog", JX_PROTECT_E, package_size, on_package);
        cfg.path = kLogPath;
        cfg.package_path = package_path;
        return jx_fopen_log_file(&cfg, "a");
    }

    static int32_t log_text(JxFile *handle, const std::string &text) {
        return jx_fwrite_log(text.data(), 1, static_cast<uint32_t>(text.size()), handle);
    }
};

TEST_F(LogFileTest, AFullLogIsPackedInItsOwnDirectory) {
    JxFile *handle = open_log(6);
    ASSERT_NE(handle, nullptr);
    EXPECT_STREQ(handle->package_name, "applog.tar.gz");
    EXPECT_EQ(log_text(handle, "line1\n"), 6);
    EXPECT_EQ(log_text(handle, "line2\n"), 6);

    const char *package = "/opt/ulx/logs/applog.tar.gz";
    EXPECT_EQ(jx::test::run_output({"tar", "-tzf", package}), "md_so_applog\n");
    EXPECT_EQ(jx::test::run_output({"tar", "-xzOf", package}), "line1\n");
    EXPECT_FALSE(jx::test::exists("/opt/ulx/logs/md_so_applog"));
    EXPECT_EQ(read_file(kLogPath), "line2\n");
    EXPECT_EQ(jx::test::stat_of(package).st_mode & 07777, 0440u);
    EXPECT_EQ(jx::test::stat_of(package).st_gid, jx::test::kTestGroup);
    EXPECT_EQ(g_callbacks, 1);
    EXPECT_EQ(g_callback_item, handle->item);
    // Log files are not registered; module files report their size.
    uint32_t size = 0;
    EXPECT_EQ(jx_get_package_size("applog", &size), JX_ERR_NOT_REGISTERED);
    register_file(jx::test::item_cfg("data", JX_PROTECT_C, 4096));
    EXPECT_EQ(jx_get_package_size("data", &size), JX_OK);
    EXPECT_EQ(size, 4096u);
    jx_fclose_log_file(handle);
}

TEST_F(LogFileTest, APackagePathWithoutDirectoryNeverPacks) {
    JxFile *handle = open_log(4, "applog.tar.gz");
    ASSERT_NE(handle, nullptr);
    jx::test::LogCapture log;
    EXPECT_EQ(log_text(handle, "abcd"), 4);
    EXPECT_EQ(log_text(handle, "efgh"), 4);
    EXPECT_EQ(log_text(handle, "i"), 0);
    EXPECT_EQ(log.messages(),
              (Messages{"file package path err(applog).", "file package path err(applog).",
                        "jx_package failed: ret -3999979."}));
    EXPECT_EQ(read_file(kLogPath), "abcdefgh");
    jx_fclose_log_file(handle);
}

TEST_F(LogFileTest, APackageWithoutTheLogsOwnerIsAFailure) {
    JxFile *handle = open_log(4);
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(log_text(handle, "abcd"), 4);
    jx::test::IoFaults faults;
    jx::test::LogCapture log;
    faults.fail(jx::test::Call::kChown, 1, EPERM);
    EXPECT_EQ(log_text(handle, "efgh"), 4);
    EXPECT_EQ(jx::test::last_message(log), "sync privilege applog failed: -1.");
    EXPECT_EQ(read_file(kLogPath), "abcdefgh");
    EXPECT_EQ(g_callbacks, 0);
    jx_fclose_log_file(handle);
}

TEST_F(LogFileTest, TheCounterCountsItemsWrittenEvenWhenShort) {
    JxFile *handle = open_log(0);
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(jx_fwrite_log("0123456789abcdefghij0123456789", 10, 3, handle), 3);
    EXPECT_EQ(jx_wirte_cnt_get(1), 3u);

    // The file may not grow past 5000 bytes: one of three 4096-byte items fits.
    const std::string data(3 * 4096, 'b');
    rlimit saved{};
    getrlimit(RLIMIT_FSIZE, &saved);
    signal(SIGXFSZ, SIG_IGN);
    rlimit small = saved;
    small.rlim_cur = 5000;
    setrlimit(RLIMIT_FSIZE, &small);
    jx::test::LogCapture log;
    const int32_t written = jx_fwrite_log(data.data(), 4096, 3, handle);
    setrlimit(RLIMIT_FSIZE, &saved);
    EXPECT_EQ(written, 1);
    EXPECT_EQ(jx_wirte_cnt_get(1), 4u);
    EXPECT_TRUE(
        log.contains("fwrite applog (sz 4096 count 3) failed: wcnt 1 errno 27(File too large)"));
    jx_fclose_log_file(handle);
}

}  // namespace
