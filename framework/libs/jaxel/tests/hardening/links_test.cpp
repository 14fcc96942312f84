#include <unistd.h>

#include "support/builders.h"
#include "support/sandbox.h"

namespace {

using namespace jx::test;

// A working copy linked inside /opt/ulx/ is used through its link; one linked
// out of it, or hard-linked, is never opened, written or cleared. A log file
// is written through its link and keeps the path it was given.
TEST_F(SandboxTest, LinksInsideAreFollowedLinksOutAndHardLinksAreRefused) {
    ASSERT_EQ(register_items("app", {item_cfg("a", 1), item_cfg("o", 1), item_cfg("h", 1)}), 0);
    const std::string p = "/opt/ulx/pram/app_", real = "/opt/ulx/pram/real", out = "/opt/out";
    write_file(out, "outside");
    write_file(real, "");
    write_file("/opt/ulx/save/real.log", "");
    const mode_t mode = stat_of(out).st_mode;
    for (auto [name, hard, target, opened] : {std::tuple{"a", false, real, real},
                                              {"o", false, out, std::string()},
                                              {"h", true, out, std::string()}}) {
        unlink((p + name).c_str());
        ASSERT_EQ(hard ? link(target.c_str(), (p + name).c_str())
                       : symlink(target.c_str(), (p + name).c_str()),
                  0);
        const Handle handle = open_handle(name, "a+");
        EXPECT_EQ(handle ? std::string(handle->file_path) : "", opened) << name;
        EXPECT_EQ(handle ? write_text(handle.get(), "new") : 0, handle ? 3 : 0) << name;
        EXPECT_EQ(jx_clear_module_file(name, "app"), opened.empty() ? JX_ERR_OPEN : 0) << name;
    }
    EXPECT_EQ(read_file(out) + read_file(real), "outside");
    EXPECT_EQ(stat_of(out).st_mode, mode);
    ASSERT_EQ(symlink("/opt/ulx/save/real.log", "/opt/ulx/save/l"), 0);
    JxItemCfg cfg = item_cfg("l", JX_PROTECT_C, 0, "/opt/ulx/save/l");
    JxFile *log = jx_fopen_log_file(&cfg, "a");
    ASSERT_NE(log, nullptr);
    EXPECT_STREQ(log->file_path, "/opt/ulx/save/l");
    EXPECT_EQ(jx_fwrite_log("x", 1, 1, log), 1);
    jx_fclose_log_file(log);
    EXPECT_EQ(read_file("/opt/ulx/save/real.log"), "x");
}

}  // namespace
