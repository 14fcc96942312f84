#include <cerrno>
#include <cstdlib>
#include <optional>
#include <regex>
#include <sys/stat.h>
#include <unistd.h>

#include "jaxel.h"
#include "support/builders.h"
#include "support/io_faults.h"
#include "support/log_capture.h"
#include "support/oracle.h"
#include "support/sandbox.h"

namespace {

using namespace jx::test;
using StartupTest = SandboxTest;
using Files = std::vector<std::pair<std::string, std::string>>;

const std::string kFlag = "/opt/ulx/save/.LoadCfg.flag",
                  kPoint = "/opt/ulx/save/.factory_recover_point";
const std::string kCleared("Cleared\0", 8),
    kFactory("Factory\0", 8), kStash = "/opt/ulx/pram/.JxCfg";

void write_all(const Files &files) {
    for (const auto &[path, content] : files) {
        write_file(path, content);
    }
}

// A recovery point archive (or its checksum companion) with members at its top.
void make_point(const std::string &archive, const Files &members) {
    std::string names;
    mkdir("/opt/ulx/point", 0755);
    for (const auto &[name, content] : members) {
        write_file("/opt/ulx/point/" + name, content);
        names += " " + name;
    }
    ASSERT_EQ(std::system(("tar -czf " + archive + " -C /opt/ulx/point" + names).c_str()), 0);
}

int32_t start_up() {
    const JxItemCfg none = item_cfg("-", JX_PROTECT_C);
    return jx_init_cfg(&none, -1, "app");
}

TEST_F(StartupTest, ArgumentsAndTheTableLock) {
    const JxItemCfg cfg = item_cfg("a", JX_PROTECT_C);
    EXPECT_EQ(jx_init_cfg(nullptr, 1, "app"), JX_ERR_PARAM1);
    EXPECT_EQ(jx_init_cfg(&cfg, 0, "app"), JX_ERR_PARAM2);
    ASSERT_EQ(rmdir("/opt/ulx/pram"), 0);
    LogCapture log;
    EXPECT_EQ(jx_init(&cfg, 1), JX_ERR_OPEN);
    EXPECT_EQ(log.messages(),
              (std::vector<std::string>{
                  "open (fsync_reg.ini) failed: errno 2(No such file or directory).",
                  "jx_init_cfg failed: ret -3999989."}));
    ASSERT_EQ(mkdir("/opt/ulx/pram", 0755), 0);
    umask(077);
    EXPECT_EQ(start_up(), 0);
    EXPECT_EQ(stat_of("/opt/ulx/pram/fsync_reg.ini").st_mode & 0777, 0644u);
    EXPECT_EQ(stat_of("/opt/ulx/pram/fsync_reg.ini").st_gid, 103u);
}

// Start-up leaves every registered working copy present and sound.
TEST_F(StartupTest, RepairsOrCreatesTheWorkingCopies) {
    const std::string p = "/opt/ulx/pram/app_", s = "/opt/ulx/save/app_";
    write_all({{s + "c", "durable c"},
               {s + "e", "durable e"},
               {s + "e.sha256", side_file_text("durable e")},
               {s + "d", "durable d"},
               {s + "d.sha256", side_file_text("durable d")},
               {p + "d", "damaged"},
               {p + "d.sha256", side_file_text("original")},
               {p + "r.bak", "backup"},
               {p + "r.bak.sha256", side_file_text("backup")}});
    ASSERT_EQ(register_items("app", {item_cfg("c", 1), item_cfg("e", 2), item_cfg("d", 2),
                                     item_cfg("r", 0), item_cfg("new", 2)}),
              0);
    for (auto [name, content] : {std::pair{"c", "durable c"},
                                 {"e", "durable e"},
                                 {"d", "durable d"},
                                 {"r", "backup"},
                                 {"new", ""}}) {
        EXPECT_EQ(read_file(p + name), content) << name;
    }
}

// Duplicates and a second start-up register nothing twice; a failing element
// stops the run before the flag is handled.
TEST_F(StartupTest, RegistersOnceAndStopsAtAFailingElement) {
    const std::vector<JxItemCfg> cfg = {item_cfg("log", 2, 4096), item_cfg("log", 1),
                                        item_cfg("n", 1)};
    ASSERT_EQ(register_items("app", cfg), 0);
    const std::string table = read_file("/opt/ulx/pram/fsync_reg.ini");
    IoFaults faults;
    ASSERT_EQ(register_items("app", cfg), 0);
    EXPECT_EQ(read_file("/opt/ulx/pram/fsync_reg.ini"), table);
    EXPECT_EQ(faults.count(Call::kFopen), 0);
    EXPECT_EQ(std::regex_replace(table, std::regex("[^\\[]"), ""), "[[[");
    write_file(kFlag, "junk");
    LogCapture log;
    EXPECT_EQ(register_items("app", {item_cfg("a", 1), item_cfg("b", 9), item_cfg("z", 1)}),
              JX_ERR_PROTECT_MODE);
    EXPECT_EQ(log.messages().back(), "jx_init_item (app b) failed: ret -3999993.");
    uint32_t size = 0;
    EXPECT_EQ(jx_get_package_size("a", &size) + jx_get_package_size("z", &size),
              JX_ERR_NOT_REGISTERED);
    EXPECT_EQ(read_file(kFlag), "junk");
}

TEST_F(StartupTest, LoadFlagIsActedOnAndWithdrawn) {
    make_point("/opt/ulx/point.tar.gz", {{"User_Roster", "roster"}});
    const struct {
        std::optional<std::string> before;
        bool point;
        int fail_fopen;
        int32_t result;
        std::optional<std::string> after;
        bool restored;
    } rows[] = {{std::nullopt, true, 0, 0, std::nullopt, false},
                {kCleared, true, 0, 0, kCleared, false},
                {"Factory\n", true, 0, 0, kCleared, false},
                {kFactory, false, 0, 0, kCleared, false},
                {kFactory, true, 0, 0, kCleared, true},
                {"junk", true, 0, 0, kCleared, false},
                {"junk", true, ENOSPC, JX_ERR_LOAD_REQ, "junk", false}};
    for (const auto &row : rows) {
        unlink(kFlag.c_str());
        unlink("/opt/ulx/pram/User_Roster");
        unlink((kPoint + ".tar.gz").c_str());
        if (row.before) {
            write_file(kFlag, *row.before);
        }
        if (row.point) {
            write_file(kPoint + ".tar.gz", read_file("/opt/ulx/point.tar.gz"));
        }
        IoFaults faults;
        if (row.fail_fopen) {
            faults.fail(Call::kFopen, 1, row.fail_fopen, true);
        }
        EXPECT_EQ(start_up(), row.result) << row.before.value_or("-");
        EXPECT_EQ(exists(kFlag) ? std::optional(read_file(kFlag)) : std::nullopt, row.after);
        EXPECT_EQ(exists("/opt/ulx/pram/User_Roster"), row.restored);
    }
    write_file(kFlag, "x");
    EXPECT_EQ(jx_factory_load_req(7), 0);
    EXPECT_EQ(read_file(kFlag), kCleared);
    EXPECT_EQ(jx_factory_load_req(1), 0);
    EXPECT_EQ(read_file(kFlag), kFactory);
    unlink((kPoint + ".tar.gz").c_str());
    write_file(kFlag, "x");
    EXPECT_EQ(jx_factory_load_req(1), JX_ERR_NO_RECOVER_POINT);
    EXPECT_EQ(read_file(kFlag), "x");
}

// Restores from the recovery point: S entries verified against their saved
// checksums (which may come in the companion archive), or the preserved files
// copied back in order; the stash goes afterwards unless it was there before.
TEST_F(StartupTest, RestoreFromTheFactoryRecoveryPoint) {
    const std::string table =
        "[S1]\nsrc=/opt/ulx/pram/app_a\ndst=/opt/ulx/save/app_a\nbak=/opt/ulx/save/app_a.bak\n"
        "crc=/opt/ulx/save/app_a.sha256\n[E2]\nsrc=/opt/ulx/pram/app_e\ncrc=/opt/ulx/save/"
        "app_e.sha256\n";
    const Files verified = {{"packet_date", ""},
                            {"fsync_reg.ini", table},
                            {"app_a", "factory"},
                            {"app_e", "factory"},
                            {"app_e.sha256", sha256_hex("factory")}};
    const Files good = {{"app_a.sha256", sha256_hex("factory")}},
                bad = {{"app_a.sha256", sha256_hex("x")}};
    const struct {
        Files members, crc_members;
        bool leftover;
        int fail_run;
        std::string a, roster, last;
    } rows[] = {
        {verified, good, false, 0, "factory", "", ""},
        {verified, bad, false, 0, "live", "",
         "\\[jx_recover_cfg_with_check\\][0-9]+ /opt/ulx/pram/.JxCfg/app_a check crc failed\n"},
        {verified, {}, false, 0, "live", "", ""},
        {{{"User_Roster", "roster"}},
         {},
         false,
         0,
         "live",
         "roster",
         "jx_recover_factory_S_cfg without check fail! ret -3999976 \n"},
        {{{"User_Roster", "roster"}}, {}, true, 0, "live", "", "create .JxCfg fail!\n"},
        {{{"User_Roster", "roster"}},
         {},
         false,
         2,
         "live",
         "",
         "copy file to path failed. 5 \\(Input/output error\\)\n"}};
    for (const auto &row : rows) {
        reset_sandbox();
        write_all({{"/opt/ulx/pram/app_a", "live"},
                   {"/opt/ulx/save/app_a", "live"},
                   {"/opt/ulx/save/app_a.bak", "live"},
                   {"/opt/ulx/pram/app_e", "live"},
                   {kFlag, kFactory}});
        make_point(kPoint + ".tar.gz", row.members);
        if (!row.crc_members.empty()) {
            make_point(kPoint + "_crc.tar.gz", row.crc_members);
        }
        if (row.leftover) {
            mkdir(kStash.c_str(), 0755);
        }
        LogCapture log;
        IoFaults faults;
        if (row.fail_run) {
            faults.fail(Call::kRun, row.fail_run, EIO);
        }
        EXPECT_EQ(start_up(), 0);
        for (const char *live :
             {"/opt/ulx/pram/app_a", "/opt/ulx/save/app_a", "/opt/ulx/save/app_a.bak"}) {
            EXPECT_EQ(read_file(live), row.a) << live;
            EXPECT_EQ(exists(std::string(live) + ".sha256")
                          ? read_file(std::string(live) + ".sha256")
                          : "live",
                      row.a == "live" ? "live" : side_file_text(row.a));
        }
        EXPECT_EQ(read_file("/opt/ulx/pram/app_e"), "live");
        EXPECT_EQ(exists("/opt/ulx/pram/User_Roster") ? read_file("/opt/ulx/pram/User_Roster") : "",
                  row.roster);
        EXPECT_EQ(exists("/opt/ulx/pram/keep_def_config.ini"), false);
        const auto messages = log.messages();
        EXPECT_TRUE(std::regex_match(messages.empty() ? "" : messages.back(), std::regex(row.last)))
            << row.last << (messages.empty() ? "" : messages.back());
        EXPECT_EQ(exists(kStash), row.leftover);
        EXPECT_EQ(read_file(kFlag), kCleared);
    }
}

// F files only: copied back from the directory or removed when it holds no
// copy; names with blanks, quotes and ; reach cp whole.
TEST_F(StartupTest, FactoryRestoreOfFFiles) {
    EXPECT_EQ(jx_recover_factory_cfg(nullptr), JX_ERR_PARAM1);
    EXPECT_EQ(jx_recover_factory_cfg("/opt/ulx/save"), JX_ERR_KEY_FILE);
    ASSERT_EQ(chdir("/opt/ulx/pram"), 0);
    mkdir("/opt/ulx/pram/sub", 0755);
    mkdir("/opt/ulx/save/fac 'tory", 0755);
    const std::string dir = "/opt/ulx/save/fac 'tory/";
    const std::string quoted = "/opt/ulx/pram/a b;touch x",
                      dollar = "/opt/ulx/pram/it's $(touch y)";
    const std::string same = "/opt/ulx/pram/sub/a b;touch x", removed = "/opt/ulx/pram/gone",
                      absent = "/opt/ulx/pram/absent";
    write_all({{dir + "a b;touch x", "factory 1"},
               {dir + "it's $(touch y)", "factory 2"},
               {dir + "app_c", "factory c"},
               {dollar, "live 2"},
               {removed, "live"},
               {"/opt/ulx/pram/app_c", "live c"}});
    ASSERT_EQ(register_items("app", {item_cfg(quoted.c_str(), 5), item_cfg(dollar.c_str(), 5),
                                     item_cfg(same.c_str(), 5), item_cfg(removed.c_str(), 5),
                                     item_cfg(absent.c_str(), 5), item_cfg("c", 1)}),
              0);
    EXPECT_EQ(jx_recover_factory_cfg(dir.substr(0, dir.size() - 1).c_str()), 0);
    EXPECT_EQ(read_file(quoted) + read_file(dollar) + read_file(same),
              "factory 1factory 2factory 1");
    EXPECT_FALSE(exists(removed) || exists(absent) || exists("x") || exists("y"));
    EXPECT_EQ(read_file("/opt/ulx/pram/app_c"), "live c");
}

// The first failed copy ends the walk; a path that cannot be formed whole
// leaves its file alone.
TEST_F(StartupTest, FactoryRestoreStopsAtAFailedCopy) {
    ASSERT_EQ(chdir("/opt/ulx/pram") + mkdir("/opt/ulx/f", 0755), 0);
    const std::string too_long = std::string(255, 'n'),
                      cut = "/opt/ulx/pram/" + std::string(240, 'm');
    write_all({{"/opt/ulx/f/app_a", "factory"},
               {"/opt/ulx/f/app_b", "factory"},
               {too_long, "live"},
               {cut, "live"},
               {"/opt/ulx/f/" + std::string(240, 'm'), "factory"},
               {"/opt/ulx/pram/app_b", "live"}});
    ASSERT_EQ(register_items("app", {item_cfg(too_long.c_str(), 5), item_cfg(cut.c_str(), 5),
                                     item_cfg("/opt/ulx/pram/no/app_a", 5),
                                     item_cfg("/opt/ulx/pram/app_b", 5)}),
              0);
    LogCapture log;
    EXPECT_EQ(jx_recover_factory_cfg("/opt/ulx/f"), JX_ERR_COPY);
    const auto m = log.messages();
    ASSERT_EQ(m.size(), 3u);
    EXPECT_TRUE(m[0].ends_with("]: strncat_s failed.\n") &&
                m[1].ends_with("]: snprintf_s failed.\n"));
    EXPECT_EQ(m[2], "Copy file(app_a) failed.");
    EXPECT_EQ(read_file(too_long) + read_file(cut) + read_file("/opt/ulx/pram/app_b"),
              "livelivelive");
}

}  // namespace
