#include <cerrno>
#include <string>

#include <gtest/gtest.h>

#include "handles/handle_fixture.h"
#include "support/io_faults.h"

namespace {

using jx::test::Call;
using jx::test::item_cfg;
using Messages = std::vector<std::string>;
using FlushTest = jx::test::HandleTest;

TEST_F(FlushTest, AnUnregisteredLogIsStillFlushedAndSynced) {
    jx::test::open_reg_table();
    JxItemCfg cfg = item_cfg("applog", JX_PROTECT_C);
    cfg.path = "/opt/ulx/pram/applog";
    JxFile *handle = jx_fopen_log_file(&cfg, "a");
    ASSERT_NE(handle, nullptr);
    jx::test::IoFaults faults;
    jx::test::LogCapture log;
    // Neither failure keeps the other step from running.
    faults.fail(Call::kFflush, 1, EIO);
    jx_flush_file(handle);
    EXPECT_EQ(faults.count(Call::kFsync), 1);
    EXPECT_EQ(log.messages(),
              (Messages{"jx_flush_file jx_fflush(applog) failed:err[5:Input/output error].",
                        "jx_flush_file file (applog) not register."}));
    jx_fclose_log_file(handle);
}

TEST_F(FlushTest, SyncsTheCompanionsThatTheRecordLists) {
    register_file(item_cfg("copy", JX_PROTECT_C));
    jx::test::write_file("/opt/ulx/save/app_copy", "durable");
    JxFile *handle = jx_fopen("copy", "a");
    ASSERT_NE(handle, nullptr);
    jx::test::IoFaults faults;
    jx_flush_file(handle);
    EXPECT_EQ(faults.count(Call::kFopen), 1);
    EXPECT_EQ(faults.count(Call::kFsync), 2);
    jx_fclose(handle);

    // A missing companion is skipped after its line; the others are synced.
    register_file(item_cfg("data", JX_PROTECT_E));
    for (const char *path : {"/opt/ulx/save/app_data", "/opt/ulx/save/app_data.bak",
                             "/opt/ulx/save/app_data.bak.sha256"}) {
        jx::test::write_file(path, "x");
    }
    handle = jx_fopen("data", "a");
    ASSERT_NE(handle, nullptr);
    jx::test::LogCapture log;
    jx_flush_file(handle);
    EXPECT_EQ(
        log.messages(),
        Messages{
            "jx_flush_file g_fopen(app_data.sha256) failed: err[2: No such file or directory]."});
    EXPECT_EQ(faults.count(Call::kFsync), 2 + 4);
    jx_fclose(handle);
}

}  // namespace
