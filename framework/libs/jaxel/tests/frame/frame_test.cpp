#include <atomic>
#include <cstring>
#include <fcntl.h>
#include <regex>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

#include "jaxel.h"
#include "support/builders.h"
#include "support/io_faults.h"
#include "support/lock_holder.h"
#include "support/log_capture.h"
#include "support/sandbox.h"

namespace {

using namespace jx::test;
using FrameTest = SandboxTest;

TEST(Frame, ModuleNameIsOneBufferCutAt31) {
    const char *buffer = jx_get_module_name();
    EXPECT_STREQ(buffer, "");
    const std::string cut = "0123456789012345678901234567890", name40 = cut + "123456789";
    for (auto [name, code, kept] : {std::tuple{name40.c_str(), 0, cut.c_str()},
                                    {nullptr, JX_ERR_PARAM1, cut.c_str()},
                                    {"", 0, ""}}) {
        EXPECT_EQ(jx_set_module_name(name), code);
        EXPECT_EQ(jx_get_module_name(), buffer);
        EXPECT_STREQ(buffer, kept);
    }
}

// Tiers, null arguments, tier 4 and cut paths; nothing lands beyond `size`.
TEST(Frame, FilePathPerTier) {
    for (auto [short_name, tier, size, expected] : {std::tuple{"n", 0u, 64u, "/opt/ulx/pram/app_n"},
                                                    {"n", 1u, 64u, "/opt/ulx/save/app_n"},
                                                    {"n", 2u, 64u, "/opt/ulx/save/app_n"},
                                                    {"n", 3u, 64u, "/opt/ulx/pflash/app_n"},
                                                    {"n", 0u, 10u, "/opt/ulx/"},
                                                    {"n", 0u, 20u, "/opt/ulx/pram/app_n"},
                                                    {"n", 0u, 19u, "/opt/ulx/pram/app_"},
                                                    {"n", 4u, 64u, "untouched"},
                                                    {nullptr, 0u, 64u, "untouched"}}) {
        char buf[80];
        std::memset(buf, '#', sizeof buf);
        std::strcpy(buf, "untouched");
        jx_get_file_path(short_name, "app", tier, buf, size);
        jx_get_file_path("n", nullptr, tier, buf, size);
        EXPECT_STREQ(buf, expected);
        EXPECT_EQ(buf[size], '#');
    }
}

// Priority 135, "[pid] source(line): message\n"; a message too long for its
// buffer is announced on standard output and still logged.
TEST_F(FrameTest, LogLineFormat) {
    const std::string too_long(300, 'n');
    for (auto [name, message, out] :
         {std::tuple{"b", "jx_init_item (app b) failed: ret -3999993.", ""},
          {too_long.c_str(), "", "ERROR: \\[jaxel\\]\\[[0-9]+\\]: snprintf_s failed\\.\n"}}) {
        LogCapture log;
        testing::internal::CaptureStdout();
        const JxItemCfg cfg = item_cfg(name, 9);
        EXPECT_EQ(jx_init_cfg(&cfg, 1, "app"), JX_ERR_PROTECT_MODE);
        EXPECT_TRUE(std::regex_match(testing::internal::GetCapturedStdout(), std::regex(out)));
        ASSERT_EQ(log.records().size(), 1u);
        const LogRecord r = log.records()[0];
        EXPECT_EQ(r.priority, 135);
        const std::string head =
            "\\[" + std::to_string(getpid()) + "\\] [^/()]+\\.cpp\\([0-9]+\\): ";
        EXPECT_TRUE(std::regex_match(r.line, std::regex(head + ".*\n"))) << r.line;
        EXPECT_TRUE(*message == 0 || r.message == message) << r.message;
    }
}

TEST_F(FrameTest, FileLockIgnoresNonPositiveAndWaitsForAnotherProcess) {
    IoFaults faults;
    for (const int fd : {0, -1}) {
        jx_file_lock(fd);
        jx_file_unlock(fd);
    }
    EXPECT_EQ(faults.count(Call::kFlock), 0);
    write_file("/opt/ulx/pram/f", "x");
    const int fd = open("/opt/ulx/pram/f", O_RDONLY);
    const LockWait wait = call_under_lock("/opt/ulx/pram/f", [fd] {
        jx_file_lock(fd);
        jx_file_unlock(fd);
        return 0;
    });
    EXPECT_TRUE(wait.ran && wait.waited && wait.released);
}

// After jx_exit a second stop returns at once and no write can start: the
// writer thread must be found asleep with the file unchanged. A child with a
// deadline turns a hang into a failure.
TEST_F(FrameTest, ExitIsFinal) {
    ASSERT_EQ(register_items("app", {item_cfg("a", JX_PROTECT_C)}), 0);
    EXPECT_EQ(in_child([] {
                  alarm(30);
                  Handle handle = open_handle("a", "a");
                  std::atomic<long> tid{0};
                  std::atomic<bool> returned{false};
                  if (jx_exit() != 0 || jx_exit() != 0) {
                      return 3;
                  }
                  std::thread writer([&] {
                      tid = syscall(SYS_gettid);
                      write_text(handle.get(), "late");
                      returned = true;
                  });
                  std::string stat;
                  while (!returned && stat.find(") S ") == std::string::npos) {
                      stat =
                          tid ? read_file("/proc/self/task/" + std::to_string(tid) + "/stat") : "";
                  }
                  _exit(returned || !read_file("/opt/ulx/pram/app_a").empty() ? 1 : 0);
              }),
              0);
}

}  // namespace
