#include <unistd.h>

#include "frame/shell.h"
#include "support/support.h"

namespace {

using namespace jx::test;

TEST(Frame, ModuleNameFilePathsQuotingAndExit) {
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
    // Tiers, cut paths, tier 4 and null arguments.
    for (auto [name, tier, size, expected] : {std::tuple{"n", 0u, 64u, "/opt/ulx/pram/app_n"},
                                              {"n", 1u, 64u, "/opt/ulx/save/app_n"},
                                              {"n", 2u, 64u, "/opt/ulx/save/app_n"},
                                              {"n", 3u, 64u, "/opt/ulx/pflash/app_n"},
                                              {"n", 0u, 20u, "/opt/ulx/pram/app_n"},
                                              {"n", 0u, 19u, "/opt/ulx/pram/app_"},
                                              {"n", 4u, 64u, "-"},
                                              {nullptr, 0u, 64u, "-"}}) {
        char buf[80] = "-";
        jx_get_file_path(name, "app", tier, buf, size);
        jx_get_file_path("n", nullptr, tier, buf, size);
        EXPECT_STREQ(buf, expected);
    }
    // Safe words pass bare, anything else goes in single quotes with each ' closed, escaped and
    // reopened; a result that does not fit with its NUL is refused and left empty.
    for (auto [arg, size, quoted] :
         {std::tuple{"a.b/c", 5, ""}, {"a;b", 6, "'a;b'"}, {"'", 7, "''\\'''"}}) {
        char out[80] = "-";
        EXPECT_EQ(jx::shell_quote(arg, out, size), *quoted != '\0') << arg;
        EXPECT_STREQ(out, quoted);
    }
    // A second stop returns at once; a child with a deadline turns a hang into a
    // failure. Other calls after the stop are outside the contract: not tested.
    EXPECT_EQ(in_child([] { return (alarm(30), jx_exit() + jx_exit()); }), 0);
}

// One line per message: "[pid] source(line): message\n" at priority 135; a
// message too long for its buffer is announced on standard output and still
// logged.
TEST_F(SandboxTest, LogLine) {
    const std::string n300(300, 'n'), pid = std::to_string(getpid());
    const JxItemCfg cfg[] = {item_cfg("b", 9), item_cfg(n300.c_str(), 9)};
    LogCapture log;
    testing::internal::CaptureStdout();
    EXPECT_EQ(jx_init_cfg(cfg, 1, "app") + jx_init_cfg(cfg + 1, 1, "app"), 2 * JX_ERR_PROTECT_MODE);
    const std::string announced = "ERROR: \\[jaxel\\]\\[[0-9]+\\]: snprintf_s failed\\.\n";
    EXPECT_TRUE(full_match(testing::internal::GetCapturedStdout(), announced));
    ASSERT_EQ(log.records().size(), 2u);
    EXPECT_EQ(log.records()[0].priority + log.records()[1].priority, 270);
    const std::string head = "\\[" + pid + "\\] [^/()]+\\.cpp\\([0-9]+\\): ";
    const std::string line = head + "jx_init_item \\(app b\\) failed: ret -3999993\\.\n";
    EXPECT_TRUE(full_match(log.records()[0].line, line));
}

}  // namespace
