#include <cerrno>
#include <cstdlib>
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

const std::string kFlag = "/opt/ulx/save/.LoadCfg.flag", kStash = "/opt/ulx/pram/.JxCfg";
const std::string kPoint = "/opt/ulx/save/.factory_recover_point", kF("Factory\0", 8);

// Each file's content, "-" when missing; "+" marks a side file that matches.
std::string state(const std::vector<std::string> &paths) {
    std::string out;
    for (const auto &p : paths) {
        const bool sound = read_file(p + ".sha256") == side_file_text(read_file(p));
        out += (exists(p) ? read_file(p) : "-") + (sound ? "+ " : " ");
    }
    return out;
}

// Writes the files; with an archive, packs them at its top level into it.
void make(const Files &files, const std::string &archive = "") {
    std::string names;
    for (const auto &[path, content] : files) {
        write_file(archive.empty() ? path : "/opt/ulx/" + path, content);
        names += " " + path;
    }
    if (!archive.empty()) {
        ASSERT_EQ(std::system(("tar -czf " + archive + " -C /opt/ulx" + names).c_str()), 0);
    }
}

int32_t start_up() {
    const JxItemCfg none = item_cfg("-", JX_PROTECT_C);
    return jx_init_cfg(&none, -1, "app");
}

bool listed(const char *short_name) {
    uint32_t size = 0;
    return jx_get_package_size(short_name, &size) == 0;
}

// A table that cannot be opened is retried by the next start-up, which sets
// its mode and group; duplicates and a second start-up register nothing
// twice; a failing element stops the run before the flag is handled.
TEST_F(StartupTest, TableLockAndRegistrationOrder) {
    const std::vector<JxItemCfg> cfg = {item_cfg("l", 2, 4096), item_cfg("l", 1), item_cfg("n", 1)};
    ASSERT_EQ(rmdir("/opt/ulx/pram"), 0);
    LogCapture log;
    EXPECT_EQ(jx_init_cfg(cfg.data(), 3, "app"), JX_ERR_OPEN);
    EXPECT_EQ(log.messages().at(0),
              "open (fsync_reg.ini) failed: errno 2(No such file or directory).");
    ASSERT_EQ(mkdir("/opt/ulx/pram", 0755), 0);
    umask(077);
    ASSERT_EQ(register_items("app", cfg), 0);
    const std::string table = read_file("/opt/ulx/pram/fsync_reg.ini");
    EXPECT_EQ(stat_of("/opt/ulx/pram/fsync_reg.ini").st_mode & 0777, 0644u);
    EXPECT_EQ(stat_of("/opt/ulx/pram/fsync_reg.ini").st_gid, 103u);
    IoFaults faults;
    ASSERT_EQ(register_items("app", cfg), 0);
    EXPECT_EQ(faults.count(Call::kFopen), 0);
    EXPECT_EQ(std::regex_replace(table, std::regex("[^\\[]"), ""), "[[[");
    EXPECT_EQ(read_file("/opt/ulx/pram/fsync_reg.ini"), table);
    write_file(kFlag, "junk");
    EXPECT_EQ(register_items("app", {item_cfg("a", 1), item_cfg("b", 9), item_cfg("z", 1)}),
              JX_ERR_PROTECT_MODE);
    EXPECT_TRUE(listed("a") && !listed("b") && !listed("z") && read_file(kFlag) == "junk");
}

// Start-up leaves every registered working copy present and sound.
TEST_F(StartupTest, RepairsOrCreatesTheWorkingCopies) {
    const std::string p = "/opt/ulx/pram/app_", s = "/opt/ulx/save/app_";
    make({{s + "c", "C"},
          {s + "e", "E"},
          {s + "e.sha256", side_file_text("E")},
          {s + "d", "D"},
          {s + "d.sha256", side_file_text("D")},
          {p + "d", "damaged"},
          {p + "d.sha256", side_file_text("x")},
          {p + "r.bak", "R"},
          {p + "r.bak.sha256", side_file_text("R")}});
    ASSERT_EQ(register_items("app", {item_cfg("c", 1), item_cfg("e", 2), item_cfg("d", 2),
                                     item_cfg("r", 0), item_cfg("new", 2)}),
              0);
    EXPECT_EQ(state({p + "c", p + "e", p + "d", p + "r", p + "new"}), "C E+ D+ R+ - ");
}

// The flag's two words count only with their terminator; a restore runs only
// when the recovery point exists; the request is always withdrawn.
TEST_F(StartupTest, LoadFlagIsActedOnAndWithdrawn) {
    make({{"User_Roster", "roster"}}, "/opt/ulx/point.tar.gz");
    const std::string c("Cleared\0", 8), roster = "/opt/ulx/pram/User_Roster";
    for (const auto &[before, point, fail, result, after] :
         {std::tuple<std::string, bool, int, int32_t, std::string>{"-", true, 0, 0, "- - "},
          {c, true, 0, 0, c + " - "},
          {"Factory\n", true, 0, 0, c + " - "},
          {kF, false, 0, 0, c + " - "},
          {kF, true, 0, 0, c + " roster+ "},
          {"junk", true, 0, 0, c + " - "},
          {"junk", true, ENOSPC, JX_ERR_LOAD_REQ, "junk - "}}) {
        for (const std::string &f : {kFlag, kPoint + ".tar.gz", roster, roster + ".sha256"}) {
            unlink(f.c_str());
        }
        make({{kFlag, before}, {kPoint + ".tar.gz", read_file("/opt/ulx/point.tar.gz")}});
        unlink((before == "-" ? kFlag : point ? "" : kPoint + ".tar.gz").c_str());
        IoFaults faults;
        if (fail != 0) {
            faults.fail(Call::kFopen, 1, fail, true);
        }
        EXPECT_EQ(start_up(), result) << before;
        EXPECT_EQ(state({kFlag, roster}), after) << before;
    }
    EXPECT_EQ(jx_factory_load_req(7) + jx_factory_load_req(1), 0);
    EXPECT_EQ(read_file(kFlag), kF);
    unlink((kPoint + ".tar.gz").c_str());
    write_file(kFlag, "x");
    EXPECT_EQ(jx_factory_load_req(1), JX_ERR_NO_RECOVER_POINT);
    EXPECT_EQ(read_file(kFlag), "x");
}

// Verified restore of S entries against saved checksums (here from the
// companion archive), or the preserved files copied back in order; the stash
// is removed unless it was there before.
TEST_F(StartupTest, RestoreFromTheFactoryRecoveryPoint) {
    const Files verified = {
        {"packet_date", ""},
        {"fsync_reg.ini",
         "[S1]\nsrc=/opt/ulx/pram/app_a\ndst=/opt/ulx/save/app_a\nbak=/opt/ulx/save/app_a.bak\n"
         "crc=/opt/ulx/save/app_a.sha256\n[E2]\nsrc=/opt/ulx/pram/app_e\ncrc=/opt/ulx/save/"
         "app_e.sha256"},
        {"app_a", "F"},
        {"app_e", "F"},
        {"app_e.sha256", sha256_hex("F")}};
    const Files plain = {{"User_Roster", "R"}}, good = {{"app_a.sha256", sha256_hex("F")}};
    const std::string same = "live live live live - ";
    for (const auto &[members, crc, leftover, fail, after, last] :
         {std::tuple<Files, Files, bool, int, std::string, std::string>{verified, good, false, 0,
                                                                        "F+ F+ F+ live - ", ""},
          {verified,
           {{"app_a.sha256", sha256_hex("x")}},
           false,
           0,
           same,
           "\\[jx_recover_cfg_with_check\\][0-9]+ /opt/ulx/pram/.JxCfg/app_a check crc failed\n"},
          {verified, {}, false, 0, same, ""},
          {plain,
           {},
           false,
           0,
           "live live live live R+ ",
           "jx_recover_factory_S_cfg without check fail! ret -3999976 \n"},
          {plain, {}, true, 0, same, "create .JxCfg fail!\n"},
          {plain, {}, false, 2, same, "copy file to path failed. 5 \\(Input/output error\\)\n"}}) {
        reset_sandbox();
        make({{"/opt/ulx/pram/app_a", "live"},
              {"/opt/ulx/save/app_a", "live"},
              {"/opt/ulx/save/app_a.bak", "live"},
              {"/opt/ulx/pram/app_e", "live"},
              {kFlag, kF}});
        make(members, kPoint + ".tar.gz");
        make(crc, crc.empty() ? "" : kPoint + "_crc.tar.gz");
        mkdir(leftover ? kStash.c_str() : "/opt/ulx/pram", 0755);
        LogCapture log;
        IoFaults faults;
        if (fail != 0) {
            faults.fail(Call::kRun, fail, EIO);
        }
        EXPECT_EQ(start_up(), 0);
        EXPECT_EQ(state({"/opt/ulx/pram/app_a", "/opt/ulx/save/app_a", "/opt/ulx/save/app_a.bak",
                         "/opt/ulx/pram/app_e", "/opt/ulx/pram/User_Roster"}),
                  after);
        const auto m = log.messages();
        EXPECT_TRUE(std::regex_match(m.empty() ? "" : m.back(), std::regex(last))) << last;
        EXPECT_EQ(exists(kStash), leftover);
    }
}

// F files only: copied back from the directory or removed when it has no copy;
// names with blanks, quotes and ; stay whole; a path that cannot be formed
// whole leaves its file alone; the first failed copy ends the walk.
TEST_F(StartupTest, FactoryRestoreOfFFiles) {
    EXPECT_EQ(jx_recover_factory_cfg(nullptr), JX_ERR_PARAM1);
    EXPECT_EQ(jx_recover_factory_cfg("/opt/ulx"), JX_ERR_KEY_FILE);
    ASSERT_EQ(chdir("/opt/ulx/pram") + mkdir("/opt/ulx/f 'x", 0755) + mkdir("sub", 0755), 0);
    const std::string d = "/opt/ulx/f 'x/", q = "a b;touch x", dq = "it's $(touch y)";
    const std::string m(240, 'm'), n(255, 'n'), p = "/opt/ulx/pram/";
    make({{d + q, "1"},
          {d + dq, "2"},
          {d + "app_c", "3"},
          {d + m, "4"},
          {d + "app_a", "5"},
          {dq, "live"},
          {"gone", "live"},
          {"app_c", "live"},
          {n, "live"},
          {m, "live"},
          {"app_b", "live"}});
    ASSERT_EQ(register_items(
                  "app", {item_cfg((p + q).c_str(), 5), item_cfg((p + dq).c_str(), 5),
                          item_cfg((p + "sub/" + q).c_str(), 5), item_cfg("/opt/ulx/pram/gone", 5),
                          item_cfg("/opt/ulx/pram/absent", 5), item_cfg(n.c_str(), 5),
                          item_cfg((p + m).c_str(), 5), item_cfg("c", 1)}),
              0);
    LogCapture log;
    EXPECT_EQ(jx_recover_factory_cfg("/opt/ulx/f 'x"), 0);
    EXPECT_EQ(state({q, dq, "sub/" + q, "gone", "absent", "app_c", n, m, "x", "y"}),
              "1 2 1 - - live live live - - ");
    ASSERT_EQ(log.messages().size(), 2u);
    EXPECT_TRUE(log.messages()[0].ends_with("]: strncat_s failed.\n"));
    EXPECT_TRUE(log.messages()[1].ends_with("]: snprintf_s failed.\n"));
    ASSERT_EQ(register_items("app", {item_cfg("/opt/ulx/pram/no/app_a", 5),
                                     item_cfg("/opt/ulx/pram/app_b", 5)}),
              0);
    EXPECT_EQ(jx_recover_factory_cfg("/opt/ulx/f 'x"), JX_ERR_COPY);
    EXPECT_EQ(log.messages().back(), "Copy file(app_a) failed.");
    EXPECT_EQ(read_file("app_b"), "live");
}

}  // namespace
