#include <cerrno>
#include <dirent.h>
#include <fstream>
#include <set>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "frame/frame.h"
#include "jaxel.h"
#include "support/io_faults.h"
#include "support/log_capture.h"
#include "support/registration.h"
#include "support/sandbox.h"

namespace {

using jx::test::Call;
using jx::test::exists;
using jx::test::read_file;
using jx::test::write_file;
using FactoryCfgTest = jx::test::SandboxTest;

const std::string kFactoryDir = "/opt/ulx/save/factory";

std::vector<std::string> g_commands;

int record_command(const char *program, char *const argv[]) {
    g_commands.emplace_back(argv[2]);
    return jx::real_io().run(program, argv);
}

std::string register_item(const std::string &name, uint32_t mode = JX_PROTECT_F) {
    JxItemCfg cfg{};
    cfg.short_name = name.c_str();
    cfg.protect_mode = mode;
    return jx::test::register_for_test("app", cfg);
}

void make_factory_copy(const std::string &name, const std::string &content,
                       const std::string &dir = kFactoryDir) {
    mkdir(dir.c_str(), 0755);
    write_file(dir + "/" + name, content);
}

std::set<std::string> entries_of(const std::string &dir) {
    std::set<std::string> names;
    DIR *d = opendir(dir.c_str());
    while (const dirent *e = readdir(d)) {
        names.insert(e->d_name);
    }
    closedir(d);
    return names;
}

TEST_F(FactoryCfgTest, OnlyFGroupsWithASourceTakePart) {
    std::vector<std::string> lives;
    for (const uint32_t mode : {JX_PROTECT_R, JX_PROTECT_C, JX_PROTECT_S}) {
        lives.push_back(register_item(std::to_string(mode), mode));
        write_file(lives.back(), "live");
        make_factory_copy(jx::base_name(lives.back().c_str()), "factory");
    }
    std::ofstream(jx::kRegTablePath, std::ios::app) << "[F9]\nprivilege=0\n";
    jx::test::IoFaults faults;
    jx::test::LogCapture log;
    EXPECT_EQ(jx_recover_factory_cfg(kFactoryDir.c_str()), 0);
    EXPECT_EQ(read_file(lives[0]) + read_file(lives[1]) + read_file(lives[2]), "livelivelive");
    EXPECT_EQ(faults.count(Call::kRun) + faults.count(Call::kUnlink), 0);
    EXPECT_TRUE(log.messages().empty());
}

TEST_F(FactoryCfgTest, EachFileIsCopiedBackOrRemoved) {
    mkdir("/opt/ulx/pram/one", 0755);
    const std::string overwritten = register_item("/opt/ulx/pram/app_a.cfg");
    const std::string created = register_item("/opt/ulx/pram/one/app_a.cfg");
    const std::string removed = register_item("/opt/ulx/pram/app_c.cfg");
    const std::string absent = register_item("/opt/ulx/pram/app_d.cfg");
    write_file(overwritten, "changed a");
    write_file(removed, "changed c");
    make_factory_copy("app_a.cfg", "factory a");
    jx::io().run = record_command;

    EXPECT_EQ(jx_recover_factory_cfg(kFactoryDir.c_str()), 0);
    EXPECT_EQ(read_file(overwritten), "factory a");
    EXPECT_EQ(read_file(created), "factory a");
    EXPECT_FALSE(exists(removed) || exists(absent));
    EXPECT_EQ(
        g_commands,
        (std::vector<std::string>{
            "cp -f /opt/ulx/save/factory/app_a.cfg /opt/ulx/pram/app_a.cfg 2>/dev/null",
            "cp -f /opt/ulx/save/factory/app_a.cfg /opt/ulx/pram/one/app_a.cfg 2>/dev/null"}));
    jx::io().run = jx::real_io().run;
}

TEST_F(FactoryCfgTest, FirstFailedCopyEndsTheWalk) {
    const std::string unreachable = register_item("/opt/ulx/pram/gone/app_a.cfg");
    const std::string later = register_item("/opt/ulx/pram/app_b.cfg");
    const std::string last = register_item("/opt/ulx/pram/app_c.cfg");
    write_file(later, "live b");
    write_file(last, "live c");
    make_factory_copy("app_a.cfg", "factory a");
    make_factory_copy("app_b.cfg", "factory b");
    jx::test::LogCapture log;
    EXPECT_EQ(jx_recover_factory_cfg(kFactoryDir.c_str()), JX_ERR_COPY);
    EXPECT_EQ(log.messages(), std::vector<std::string>{"Copy file(app_a.cfg) failed."});
    EXPECT_EQ(read_file(later) + read_file(last), "live blive c");

    mkdir("/opt/ulx/pram/gone", 0755);
    jx::test::IoFaults faults;
    faults.fail(Call::kRun, 2, EIO);
    log.clear();
    EXPECT_EQ(jx_recover_factory_cfg(kFactoryDir.c_str()), JX_ERR_COPY);
    EXPECT_EQ(log.messages(), std::vector<std::string>{"Copy file(app_b.cfg) failed."});
    EXPECT_EQ(read_file(unreachable) + read_file(last), "factory alive c");
}

TEST_F(FactoryCfgTest, UnavailableTableTouchesNothing) {
    write_file(jx::kRegTablePath, "[F1]\nsrc=/opt/ulx/pram/app_a.cfg\nprivilege=0\n");
    write_file("/opt/ulx/pram/app_a.cfg", "live");
    jx::test::LogCapture log;
    EXPECT_EQ(jx_recover_factory_cfg(nullptr), JX_ERR_PARAM1);
    ASSERT_EQ(jx::reg_table_fd(), -1);
    EXPECT_EQ(jx_recover_factory_cfg(kFactoryDir.c_str()), JX_ERR_KEY_FILE);
    EXPECT_TRUE(exists("/opt/ulx/pram/app_a.cfg"));
    EXPECT_TRUE(log.messages().empty());
}

// Each name reaches cp as one argument, whatever the shell would make of it.
TEST_F(FactoryCfgTest, ShellCharactersCannotChangeTheCommand) {
    ASSERT_EQ(chdir("/opt/ulx/pram"), 0);
    const std::string dir = "/opt/ulx/save/fac tory";
    const std::string blank = register_item("/opt/ulx/pram/a b;touch x");
    const std::string quote = register_item("/opt/ulx/pram/it's $(touch y)");
    make_factory_copy("a b;touch x", "factory 1", dir);
    make_factory_copy("it's $(touch y)", "factory 2", dir);
    write_file(quote, "live 2");

    EXPECT_EQ(jx_recover_factory_cfg(dir.c_str()), 0);
    EXPECT_EQ(read_file(blank) + read_file(quote), "factory 1factory 2");
    EXPECT_EQ(
        entries_of("/opt/ulx/pram"),
        (std::set<std::string>{".", "..", "fsync_reg.ini", "a b;touch x", "it's $(touch y)"}));
    EXPECT_EQ(entries_of(dir).size(), 4u);
}

// The cut copy name of the first file would name no copy and so remove it; the
// cut command of the second could copy anywhere. Both are left alone.
TEST_F(FactoryCfgTest, PathsThatDoNotFitLeaveTheirFileAlone) {
    const std::string no_room_for_copy = register_item("/opt/ulx/pram/" + std::string(255, 'n'));
    const std::string no_room_for_command = register_item("/opt/ulx/pram/" + std::string(240, 'm'));
    const std::string ordinary = register_item("/opt/ulx/pram/app_a.cfg");
    write_file(no_room_for_copy, "live n");
    write_file(no_room_for_command, "live m");
    make_factory_copy(std::string(240, 'm'), "factory m");
    make_factory_copy("app_a.cfg", "factory a");
    jx::test::LogCapture log;

    EXPECT_EQ(jx_recover_factory_cfg(kFactoryDir.c_str()), 0);
    EXPECT_EQ(read_file(no_room_for_copy) + read_file(no_room_for_command), "live nlive m");
    EXPECT_EQ(read_file(ordinary), "factory a");
    const char *const endings[] = {"]: strncat_s failed.\n", "]: snprintf_s failed.\n"};
    const std::vector<std::string> messages = log.messages();
    ASSERT_EQ(messages.size(), 2u);
    for (int i = 0; i < 2; ++i) {
        const std::string &m = messages[i];
        EXPECT_EQ(m.rfind("[/", 0), 0u) << m;
        EXPECT_NE(m.find("/src/startup/factory_cfg.cpp]["), std::string::npos) << m;
        EXPECT_TRUE(m.ends_with(endings[i])) << m;
    }
}

}  // namespace
