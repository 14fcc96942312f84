#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <unistd.h>

#include "support/support.h"

namespace {

using namespace jx::test;
using Files = std::vector<std::pair<std::string, std::string>>;

const std::string kFlag = "/opt/ulx/save/.LoadCfg.flag", kStash = "/opt/ulx/pram/.JxCfg";
const std::string kPoint = "/opt/ulx/save/.factory_recover_point", kF("Factory\0", 8);
const std::string kC("Cleared\0", 8), kA = "/opt/ulx/pram/app_a", kAs = "/opt/ulx/save/app_a";
const std::string kE = "/opt/ulx/save/e";

// Each file's content, "-" when missing; "+" marks a side file that matches.
std::string state(const std::vector<std::string> &paths) {
    std::string out;
    for (const auto &p : paths)
        out += (exists(p) ? read_file(p) : "-") +
               (read_file(p + ".sha256") == side_file_text(read_file(p)) ? "+ " : " ");
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

// The table is created 0644, group 103, whatever the umask; start-up repairs the working
// copies; a second one registers and repairs nothing; a failing element ends
// the run.
TEST_F(SandboxTest, RegistrationAndRepair) {
    make({{kAs, "D"}, {kAs + ".sha256", side_file_text("D")}, {kA, "x"}, {kA + ".sha256", ""}});
    umask(077);
    const std::vector<JxItemCfg> cfg = {item_cfg("a", 2), item_cfg("l", 1, 9), item_cfg("l", 2)};
    ASSERT_EQ(register_items("app", cfg), 0);
    const std::string table = read_file("/opt/ulx/pram/fsync_reg.ini");
    const struct stat st = stat_of("/opt/ulx/pram/fsync_reg.ini");
    EXPECT_EQ((st.st_mode & 0777) + (st.st_gid << 9), 0644u + (103u << 9));  // group 103
    EXPECT_EQ(std::count(table.begin(), table.end(), '['), 3);
    EXPECT_EQ(state({kA}), "D+ ");
    IoFaults faults;
    ASSERT_EQ(register_items("app", cfg), 0);
    EXPECT_EQ(faults.count(Call::kFopen) + (read_file("/opt/ulx/pram/fsync_reg.ini") != table), 0);
    EXPECT_EQ(register_items("app", {item_cfg("b", 9), item_cfg("z", 1)}), JX_ERR_PROTECT_MODE);
    EXPECT_EQ(jx_fopen_file("z", "app", "a"), nullptr);
    faults.fail(Call::kFsync, 1, EIO);  // the table append is synced before anything else
    EXPECT_EQ(register_items("app", {item_cfg("t", JX_PROTECT_C)}), JX_ERR_WRITE);
}

// The flag's words count only with their terminator and the request is always
// withdrawn. A restore needs the recovery point: S entries are verified
// against saved checksums (here from the companion archive); without a marker
// the preserved files are copied back in order; the stash goes afterwards
// unless it was there before.
TEST_F(SandboxTest, LoadFlagAndRestoreFromTheRecoveryPoint) {
    EXPECT_EQ(jx_factory_load_req(1) + exists(kFlag), JX_ERR_NO_RECOVER_POINT);
    const std::string stashed = "[S1]\nsrc=" + kA + "\ndst=" + kAs + "\nbak=" + kAs +
                                ".bak\ncrc=" + kAs + ".sha256\n[E2]\nsrc=" + kE + "\ncrc=/e.sum";
    Files s = {{"packet_date", ""}, {"app_a", "F"}, {"e", "F"}};
    s.insert(s.end(), {{"e.sum", sha256_hex("F")}, {"fsync_reg.ini", stashed}});
    const Files r = {{"User_Roster", "R"}}, ok = {{"app_a.sha256", sha256_hex("F")}};
    const std::string live = " live live live live - ", c = kC + live;
    const JxItemCfg no_item = item_cfg("-", JX_PROTECT_C);
    const std::string crc_failed =
        "\\[jx_recover_cfg_with_check\\][0-9]+ /opt/ulx/pram/.JxCfg/app_a check crc failed\n";
    const std::string no_check = "jx_recover_factory_S_cfg without check fail! ret -3999976 \n";
    const std::string unpack_failed = "copy file to path failed. 5 \\(Input/output error\\)\n";
    const std::pair<Call, int> none{Call::kRun, 0}, unpack{Call::kRun, 2}, flag{Call::kWrite, 1};
    using Row = std::tuple<std::string, Files, Files, bool, std::pair<Call, int>, int32_t,
                           std::string, std::string>;
    for (const auto &[before, point, crc, stash, fault, result, after, last] :
         std::vector<Row>({{"-", r, {}, false, none, 0, "-" + live, ""},
                           {kC, r, {}, false, none, 0, c, ""},
                           {"Factory\n", r, {}, false, none, 0, c, ""},
                           {kF, {}, {}, false, none, 0, c, ""},
                           {"junk", r, {}, false, flag, JX_ERR_LOAD_REQ, "junk" + live, ".*"},
                           {kF, s, ok, false, none, 0, kC + " F+ F+ F+ live - ", ""},
                           {kF, s, {{"app_a.sha256", ""}}, false, none, 0, c, crc_failed},
                           {kF, r, {}, false, none, 0, kC + " live live live live R+ ", no_check},
                           {kF, r, {}, true, none, 0, c, "create .JxCfg fail!\n"},
                           {kF, r, {}, false, unpack, 0, c, unpack_failed}})) {
        reset_sandbox();
        make({{kA, "live"}, {kAs, "live"}, {kAs + ".bak", "live"}, {kE, "live"}, {kFlag, before}});
        unlink(before == "-" ? kFlag.c_str() : "");
        make(point, point.empty() ? "" : kPoint + ".tar.gz");
        make(crc, crc.empty() ? "" : kPoint + "_crc.tar.gz");
        mkdir(stash ? kStash.c_str() : "/opt/ulx", 0755);  // the second is there already
        LogCapture log;
        IoFaults faults;
        faults.fail(fault.first, fault.second, fault.first == Call::kRun ? EIO : ENOSPC,
                    fault.first == Call::kWrite);
        EXPECT_EQ(jx_init_cfg(&no_item, -1, "app"), result) << before;  // flag handling only
        EXPECT_EQ(state({kFlag, kA, kAs, kAs + ".bak", kE, "/opt/ulx/pram/User_Roster"}), after);
        const auto m = log.messages();
        EXPECT_TRUE(full_match(m.empty() ? "" : m.back(), last)) << last;
        EXPECT_EQ(exists(kStash), stash);
        // The stashed table is locked; every redo record (one write each) is too.
        EXPECT_EQ(faults.count(Call::kFlock) - faults.count(Call::kWrite), point == s ? 4 : 2);
    }
    EXPECT_EQ(jx_factory_load_req(7) + jx_factory_load_req(1), 0);
    EXPECT_EQ(read_file(kFlag), kF);
}

// Only F files: copied back from the directory, or removed when it has no
// copy; names with blanks, quotes and ; stay whole; an entry that is not an
// absolute path is skipped; the first failed copy ends the walk.
TEST_F(SandboxTest, FactoryRestoreOfFFiles) {
    EXPECT_EQ(jx_recover_factory_cfg("/"), JX_ERR_KEY_FILE);
    ASSERT_EQ(chdir("/opt/ulx/pram") + mkdir("/opt/ulx/f 'x", 0755) + mkdir("sub", 0755), 0);
    const std::string d = "/opt/ulx/f 'x/", q = "a b;touch x", dq = "it's $(touch y)";
    make({{d + q, "1"}, {d + dq, "2"}, {d + "app_c", "3"}, {d + "a", "4"}, {dq, "live"}});
    make({{"gone", "live"}, {"app_c", "live"}, {"b", "live"}, {"old", "live"}});
    chmod((d + q).c_str(), 0600);  // a live file made from it is no more open
    const std::string at = "/opt/ulx/pram/";
    const std::vector<std::string> files = {at + q,        at + dq,     at + "sub/" + q, at + "old",
                                            at + "absent", at + "no/a", at + "b"};
    std::vector<JxItemCfg> cfg = {item_cfg("c", JX_PROTECT_C)};
    for (const std::string &f : files)
        cfg.push_back(item_cfg(f.c_str(), JX_PROTECT_F));
    ASSERT_EQ(register_items("app", std::vector(cfg.begin(), cfg.end() - 2)), 0);
    // A group naming its file relatively (hand-made) is never taken from the caller's directory.
    write_file(at + "fsync_reg.ini", read_file(at + "fsync_reg.ini") + "[F99]\nsrc=gone\n");
    EXPECT_EQ(jx_recover_factory_cfg("/opt/ulx/f 'x"), 0);
    EXPECT_EQ(state({q, dq, "sub/" + q, "old", "gone", "absent", "app_c", "x", "y"}),
              "1 2 1 - live - live - - ");
    EXPECT_EQ(stat_of(at + q).st_mode & 0777, 0600u);
    ASSERT_EQ(register_items("app", cfg), 0);
    LogCapture log;
    EXPECT_EQ(jx_recover_factory_cfg("/opt/ulx/f 'x"), JX_ERR_COPY);
    EXPECT_EQ(log.messages().back(), "Copy file(a) failed.");
    EXPECT_EQ(read_file("b"), "live");
}

}  // namespace
