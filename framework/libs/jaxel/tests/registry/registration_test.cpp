#include <string>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "frame/frame.h"
#include "frame/module_list.h"
#include "jaxel.h"
#include "registry/registry.h"
#include "startup/startup.h"
#include "support/io_faults.h"
#include "support/log_capture.h"
#include "support/registration.h"
#include "support/sandbox.h"

namespace {

using jx::test::exists;
using jx::test::read_file;
using jx::test::write_file;

const std::string kTable = "/opt/ulx/pram/fsync_reg.ini";
const std::string kThreeGroups =
    "[C1]\ndst=/opt/ulx/save/x_1\nsrc=/opt/ulx/pram/x_1\nprivilege=0\n"
    "[C2]\ndst=/opt/ulx/save/x_2\nsrc=/opt/ulx/pram/x_2\nprivilege=0\n"
    "[F3]\nsrc=/etc/x_3\nprivilege=0\n";

JxItemCfg element(const char *short_name, uint32_t mode, const char *path = nullptr) {
    JxItemCfg cfg{};
    cfg.short_name = short_name;
    cfg.path = path;
    cfg.protect_mode = mode;
    cfg.privilege = 0x644ull | (103ull << 32);
    return cfg;
}

class RegistrationTest : public jx::test::SandboxTest {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        jx::test::open_reg_table();
    }
};

TEST_F(RegistrationTest, AppendsTheGroupOfEachModeExactlyAsPrinted) {
    write_file(kTable, kThreeGroups);
    JxItemCfg net = element("net.conf", JX_PROTECT_E);
    ASSERT_EQ(jx::jx_init_item(&net, "app"), 0);
    EXPECT_EQ(read_file(kTable), kThreeGroups +
                                     "[E4]\n"
                                     "dst=/opt/ulx/save/app_net.conf\n"
                                     "src=/opt/ulx/pram/app_net.conf\n"
                                     "bak=/opt/ulx/save/app_net.conf.bak\n"
                                     "crc=/opt/ulx/save/app_net.conf.sha256\n"
                                     "bakcrc=/opt/ulx/save/app_net.conf.bak.sha256\n"
                                     "privilege=442381633092\n");
    const JxModuleItem *item = jx::jx_find_module_item("net.conf");
    ASSERT_NE(item, nullptr);
    EXPECT_STREQ(item->package_path, "/opt/ulx/save/app_net.conf.tar.gz");

    write_file(kTable, "[S1]\nsrc=/opt/ulx/pram/s\n[R2]\nsrc=/opt/ulx/pram/r\n");
    JxItemCfg r = element("a", JX_PROTECT_R);
    r.privilege = 0;
    r.callback_obj = "obj";
    ASSERT_EQ(jx::jx_init_item(&r, "app"), 0);
    JxItemCfg p = element("fw", JX_PROTECT_P, "/opt/ulx/save/x");
    p.privilege = 0;
    p.callback_obj = "obj";
    p.callback_method = "reload";
    ASSERT_EQ(jx::jx_init_item(&p, "app"), 0);
    EXPECT_EQ(read_file(kTable),
              "[S1]\nsrc=/opt/ulx/pram/s\n[R2]\nsrc=/opt/ulx/pram/r\n"
              "[R3]\ndst=/opt/ulx/pram/app_a.bak\nsrc=/opt/ulx/pram/app_a\n"
              "bak=/opt/ulx/pram/app_a.bak\ncrc=/opt/ulx/pram/app_a.bak.sha256\n"
              "bakcrc=/opt/ulx/pram/app_a.bak.sha256\nprivilege=0\n"
              "[P4]\ndst=/opt/ulx/pflash/app_fw\nsrc=/opt/ulx/pram/app_fw\nprivilege=0\n"
              "callback_obj=obj\ncallback_method=reload\n");
}

TEST_F(RegistrationTest, ChosenPathsResolveAndStaleCompanionsGo) {
    write_file("/opt/ulx/target", "durable");
    ASSERT_EQ(symlink("/opt/ulx/target", "/opt/ulx/link"), 0);
    JxItemCfg e = element("e", JX_PROTECT_E, "/opt/ulx/link");
    ASSERT_EQ(jx::jx_init_item(&e, "app"), 0);
    jx::RegItem *record = jx::get_reg_inter_info("/opt/ulx/pram/app_e");
    ASSERT_NE(record, nullptr);
    EXPECT_STREQ(record->dst, "/opt/ulx/target");
    EXPECT_STREQ(record->bak, "/opt/ulx/save/app_e.bak");
    g_free(record);
    EXPECT_EQ(read_file("/opt/ulx/pram/app_e"), "durable");

    // Once E, now C: the old side files and backup are removed, the group stays.
    for (const char *stale : {"/opt/ulx/pram/app_e.sha256", "/opt/ulx/save/app_e.sha256",
                              "/opt/ulx/save/app_e.bak", "/opt/ulx/save/app_e.bak.sha256"}) {
        write_file(stale, "old");
    }
    const std::string table_before = read_file(kTable);
    JxItemCfg c = element("e", JX_PROTECT_C);
    ASSERT_EQ(jx::jx_init_item(&c, "app"), 0);
    EXPECT_FALSE(exists("/opt/ulx/pram/app_e.sha256"));
    EXPECT_FALSE(exists("/opt/ulx/save/app_e.bak"));
    EXPECT_FALSE(exists("/opt/ulx/save/app_e.bak.sha256"));
    EXPECT_EQ(read_file(kTable), table_before);

    JxItemCfg invalid = element("bad", 6);
    EXPECT_EQ(jx::jx_init_item(&invalid, "app"), JX_ERR_PROTECT_MODE);
    EXPECT_EQ(read_file(kTable), table_before);
    EXPECT_EQ(jx::jx_find_module_item("bad"), nullptr);
}

TEST_F(RegistrationTest, ASecondProcessFindsTheFileListedAndStillRepairsIt) {
    write_file("/opt/ulx/save/app_net.conf", "durable");
    JxItemCfg net = element("net.conf", JX_PROTECT_C);
    ASSERT_EQ(jx::jx_init_item(&net, "app"), 0);
    const std::string table = read_file(kTable);
    ASSERT_EQ(unlink("/opt/ulx/pram/app_net.conf"), 0);

    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        jx::set_reg_table_fd(-1);
        jx::test::open_reg_table();
        jx::g_jx_reg_list = nullptr;
        const bool ok =
            jx::jx_init_item(&net, "app") == 0 && jx::jx_find_module_item("net.conf") != nullptr;
        _exit(ok ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_EQ(read_file(kTable), table);
    EXPECT_EQ(read_file("/opt/ulx/pram/app_net.conf"), "durable");
}

TEST_F(RegistrationTest, AnUnreadableTableAddsNoItem) {
    write_file(kTable, "not a key file");
    jx::test::LogCapture log;
    JxItemCfg net = element("net.conf", JX_PROTECT_C);
    EXPECT_EQ(jx::jx_init_item(&net, "app"), JX_ERR_OPEN);
    const auto messages = log.messages();
    ASSERT_EQ(messages.size(), 3u);
    EXPECT_EQ(messages[1], "open_key_file(fsync_reg.ini) failed.");
    EXPECT_EQ(messages[2], "jx_fsync_register_inter failed: ret -3999989.");
    EXPECT_EQ(jx::jx_find_module_item("net.conf"), nullptr);
}

}  // namespace
