#include <cstring>
#include <regex>
#include <string>
#include <unistd.h>

#include <gtest/gtest.h>

#include "frame/frame.h"
#include "jaxel.h"
#include "support/log_capture.h"

namespace {

TEST(ModuleName, StartsEmptyCutsAt31AndKeepsOneBuffer) {
    const char *name = jx_get_module_name();
    ASSERT_NE(name, nullptr);
    EXPECT_STREQ(name, "");

    EXPECT_EQ(jx_set_module_name("0123456789012345678901234567890123456789"), 0);
    EXPECT_STREQ(jx_get_module_name(), "0123456789012345678901234567890");
    EXPECT_EQ(jx_get_module_name(), name);

    EXPECT_EQ(jx_set_module_name(nullptr), JX_ERR_PARAM1);
    EXPECT_STREQ(name, "0123456789012345678901234567890");

    EXPECT_EQ(jx_set_module_name(""), 0);
    EXPECT_STREQ(name, "");
}

TEST(Log, OneLineAtPriority135NamingSourceAndLine) {
    jx::test::LogCapture log;
    const int line = __LINE__ + 1;
    JX_LOG("open %s failed: %d", "a.conf", -7);
    const auto records = log.records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].priority, 135);
    EXPECT_EQ(records[0].line, "[" + std::to_string(getpid()) + "] frame_test.cpp(" +
                                   std::to_string(line) + "): open a.conf failed: -7\n");
}

TEST(Log, MessageThatDoesNotFitGoesToStdoutAndStillLogs) {
    jx::test::LogCapture log;
    const std::string long_text(300, 'x');
    testing::internal::CaptureStdout();
    const int line = __LINE__ + 1;
    JX_LOG("%s", long_text.c_str());
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "ERROR: [jaxel][" + std::to_string(line) + "]: snprintf_s failed.\n");
    ASSERT_EQ(log.records().size(), 1u);
    EXPECT_EQ(log.records()[0].priority, 135);

    log.clear();
    testing::internal::CaptureStdout();
    JX_LOG("%s", std::string(255, 'y').c_str());
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(log.messages().at(0), std::string(255, 'y'));
}

TEST(FilePath, TiersNullsAndTruncation) {
    char buf[256];
    jx_get_file_path("net.conf", "app", 0, buf, sizeof buf);
    EXPECT_STREQ(buf, "/opt/ulx/pram/app_net.conf");
    jx_get_file_path("net.conf", "app", 1, buf, sizeof buf);
    EXPECT_STREQ(buf, "/opt/ulx/save/app_net.conf");
    jx_get_file_path("net.conf", "app", 2, buf, sizeof buf);
    EXPECT_STREQ(buf, "/opt/ulx/save/app_net.conf");
    jx_get_file_path("net.conf", "app", 3, buf, sizeof buf);
    EXPECT_STREQ(buf, "/opt/ulx/pflash/app_net.conf");

    std::strcpy(buf, "untouched");
    jx_get_file_path("net.conf", "app", 4, buf, sizeof buf);
    jx_get_file_path(nullptr, "app", 0, buf, sizeof buf);
    jx_get_file_path("net.conf", nullptr, 0, buf, sizeof buf);
    jx_get_file_path("net.conf", "app", 0, nullptr, sizeof buf);
    EXPECT_STREQ(buf, "untouched");

    char small[16];
    std::memset(small, '#', sizeof small);
    jx_get_file_path("net.conf", "app", 0, small, 10);
    EXPECT_STREQ(small, "/opt/ulx/");
    EXPECT_EQ(small[10], '#');
}

TEST(Path, BaseNameAndPrefix) {
    EXPECT_STREQ(jx::base_name("/opt/ulx/pram/app_a"), "app_a");
    EXPECT_STREQ(jx::base_name("plain"), "plain");
    EXPECT_STREQ(jx::base_name("/dir/"), "");
    EXPECT_TRUE(jx::has_prefix("/opt/ulx/save/x", "/opt/ulx/save/"));
    EXPECT_FALSE(jx::has_prefix("/opt/ulx/save", "/opt/ulx/save/"));
    EXPECT_STREQ(jx::parent_of("/opt/ulx/pram/a").c_str(), "/opt/ulx/pram");
    EXPECT_STREQ(jx::parent_of("/a").c_str(), "/");
    EXPECT_STREQ(jx::parent_of("a").c_str(), ".");
    EXPECT_EQ(std::strlen(jx::make_path({std::string(300, 'p').c_str(), ".sha256"}).c_str()), 255u);
}

}  // namespace
