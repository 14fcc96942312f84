#include <string>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "frame/frame.h"
#include "frame/module_list.h"
#include "jaxel.h"
#include "support/io_faults.h"
#include "support/log_capture.h"
#include "support/sandbox.h"

namespace {

using jx::test::Call;
using jx::test::exists;
using jx::test::read_file;
using jx::test::write_file;
using InitCfgTest = jx::test::SandboxTest;

const std::string kTable = "/opt/ulx/pram/fsync_reg.ini";
const std::string kFlag = "/opt/ulx/save/.LoadCfg.flag";
const std::string kCleared("Cleared\0", 8);

JxItemCfg element(const char *short_name, uint32_t mode, int32_t package_size = 0) {
    JxItemCfg cfg{};
    cfg.short_name = short_name;
    cfg.protect_mode = mode;
    cfg.package_size = package_size;
    cfg.privilege = 0x644;
    return cfg;
}

int groups_in_table() {
    const std::string text = read_file(kTable);
    int n = 0;
    for (std::size_t at = text.find('['); at != std::string::npos; at = text.find('[', at + 1)) {
        ++n;
    }
    return n;
}

TEST_F(InitCfgTest, ArgumentsRebootAndTheTableLock) {
    const JxItemCfg cfg[] = {element("a", JX_PROTECT_C)};
    EXPECT_EQ(jx_init_cfg(nullptr, 1, "app"), JX_ERR_PARAM1);
    EXPECT_EQ(jx_init_cfg(cfg, 0, "app"), JX_ERR_PARAM2);
    EXPECT_EQ(jx::reg_table_fd(), -1);

    jx::test::LogCapture log;
    write_file(jx::kRebootFlagPath, "");
    EXPECT_EQ(jx_init_cfg(cfg, 1, "app"), JX_ERR_REBOOTING);
    EXPECT_EQ(log.messages().back(), "reboot processing, operation stopped.");
    ASSERT_EQ(unlink(jx::kRebootFlagPath), 0);

    // Without its directory the table cannot be opened; a later start tries again.
    ASSERT_EQ(rmdir("/opt/ulx/pram"), 0);
    jx_set_module_name("app");
    EXPECT_EQ(jx_init(cfg, 1), JX_ERR_OPEN);
    EXPECT_EQ(log.messages().at(log.messages().size() - 2),
              "open (fsync_reg.ini) failed: errno 2(No such file or directory).");
    EXPECT_EQ(log.messages().back(), "jx_init_cfg failed: ret -3999989.");
    ASSERT_EQ(mkdir("/opt/ulx/pram", 0755), 0);

    const mode_t old_umask = umask(077);
    EXPECT_EQ(jx_init(cfg, -1), 0);
    umask(old_umask);
    struct stat st {};
    ASSERT_EQ(stat(kTable.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0644u);
    EXPECT_EQ(st.st_gid, 103u);
    EXPECT_EQ(jx::g_jx_reg_list, nullptr);
}

TEST_F(InitCfgTest, RegistersOnceAndAddsThePackagesOfSizedFiles) {
    jx_set_module_name("app");
    const JxItemCfg cfg[] = {element("log.txt", JX_PROTECT_E, 4096),
                             element("log.txt", JX_PROTECT_C), element("net.conf", JX_PROTECT_C)};
    ASSERT_EQ(jx_init(cfg, 3), 0);
    EXPECT_EQ(g_slist_length(jx::g_jx_reg_list), 3u);
    EXPECT_NE(jx::jx_find_module_item("log.txt.tar.gz"), nullptr);
    EXPECT_EQ(jx::jx_find_module_item("log.txt")->protect_mode, JX_PROTECT_E);
    const std::string table = read_file(kTable);
    EXPECT_NE(table.find("[C2]\ndst=/opt/ulx/save/app_log.txt.tar.gz\n"
                         "src=/opt/ulx/pram/app_log.txt.tar.gz\n"),
              std::string::npos);
    EXPECT_EQ(groups_in_table(), 3);

    jx::test::IoFaults faults;
    ASSERT_EQ(jx_init(cfg, 3), 0);
    EXPECT_EQ(g_slist_length(jx::g_jx_reg_list), 3u);
    EXPECT_EQ(read_file(kTable), table);
    EXPECT_EQ(faults.count(Call::kFopen), 0);
}

TEST_F(InitCfgTest, AFailingElementStopsTheRunAndKeepsTheOnesBefore) {
    jx::test::LogCapture log;
    const JxItemCfg cfg[] = {element("a", JX_PROTECT_C), element("b", 9),
                             element("c", JX_PROTECT_C)};
    EXPECT_EQ(jx_init_cfg(cfg, 3, "app"), JX_ERR_PROTECT_MODE);
    EXPECT_EQ(log.messages().back(), "jx_init_item (app b) failed: ret -3999993.");
    EXPECT_NE(jx::jx_find_module_item("a"), nullptr);
    EXPECT_EQ(jx::jx_find_module_item("c"), nullptr);
}

TEST_F(InitCfgTest, TheLoadFlagIsWithdrawnWhateverItHeld) {
    const JxItemCfg cfg[] = {element("a", JX_PROTECT_C)};
    EXPECT_EQ(jx_init_cfg(cfg, 1, "app"), 0);
    EXPECT_FALSE(exists(kFlag));

    EXPECT_EQ(jx_factory_load_req(1), JX_ERR_NO_RECOVER_POINT);
    EXPECT_FALSE(exists(kFlag));
    EXPECT_EQ(jx_factory_load_req(7), 0);
    EXPECT_EQ(read_file(kFlag), kCleared);
    EXPECT_EQ(jx_wirte_cnt_get(2), 8u);

    write_file(kFlag, "Factory\n");
    jx::test::IoFaults faults;
    EXPECT_EQ(jx_init_cfg(cfg, 1, "app"), 0);
    EXPECT_EQ(faults.count(Call::kRun), 0);
    EXPECT_EQ(read_file(kFlag), kCleared);

    // A requested restore without a recovery point restores nothing.
    write_file(kFlag, std::string("Factory\0", 8));
    EXPECT_EQ(jx_init_cfg(cfg, 1, "app"), 0);
    EXPECT_EQ(faults.count(Call::kRun), 0);
    EXPECT_EQ(read_file(kFlag), kCleared);

    write_file(kFlag, "junk");
    faults.fail(Call::kFopen, 1, ENOSPC);
    EXPECT_EQ(jx_init_cfg(cfg, 1, "app"), JX_ERR_LOAD_REQ);
}

}  // namespace
