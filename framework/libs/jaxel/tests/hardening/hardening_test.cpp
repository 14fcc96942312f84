#include <functional>
#include <sys/stat.h>
#include <unistd.h>

#include "frame/io.h"
#include "support/support.h"

namespace {

using namespace jx::test;

const std::string kP = "/opt/ulx/pram/", kTable = kP + "fsync_reg.ini";

// Runs once, right before the library's next open: the node changes between
// the library's look at it and its open.
std::function<void()> g_swap;
int swapping_open(const char *path, int flags, mode_t mode) {
    if (const auto swap = std::exchange(g_swap, nullptr))
        swap();
    return jx::real_io().open(path, flags, mode);
}

// Hostile names and paths are refused whole, with a log line that names no
// "(null)": no group, no file outside its tier, not even for earlier elements.
TEST_F(SandboxTest, HostileNamesAndLengthsAreRefusedBeforeAnythingIsCreated) {
    const std::string long_name(240, 'n');
    ASSERT_EQ(register_items("app", {item_cfg("seed", JX_PROTECT_C)}), 0);
    const std::tuple<const char *, const char *, int, const char *, int> rows[] = {
        {"app", "a\nb", JX_PROTECT_E, "", JX_ERR_PARAM1},
        {"app", "../../x", JX_PROTECT_E, "", JX_ERR_PARAM1},
        {"app", "..", JX_PROTECT_C, "", JX_ERR_PARAM1},
        {"app", "a\\tb", JX_PROTECT_E, "", JX_ERR_PARAM1},
        {"app", "\xff", JX_PROTECT_E, "", JX_ERR_PARAM1},
        {"app", long_name.c_str(), JX_PROTECT_E, "", JX_ERR_PARAM1},
        {"x/..", "n", JX_PROTECT_E, "", JX_ERR_PARAM3},
        {"app", "x", JX_PROTECT_F, "", JX_ERR_PARAM1},
        {"app", "/opt/ulx/../x", JX_PROTECT_F, "", JX_ERR_PARAM1},
        {"app", "n", JX_PROTECT_P, "/opt/ulx/pflash/../x", JX_ERR_PARAM1},
        {"app", "n", JX_PROTECT_E, "/opt/a\nb", JX_ERR_PARAM1},
        {"app", "n", JX_PROTECT_E, "", 0}};
    for (auto [module, name, mode, path, code] : rows) {
        const std::string before = read_file(kTable);
        LogCapture log;
        const JxItemCfg cfg[] = {item_cfg("ok", JX_PROTECT_C), item_cfg(name, mode, 0, path)};
        EXPECT_EQ(jx_init_cfg(cfg, 2, module), code) << name;
        EXPECT_EQ(read_file(kTable) == before, code != 0) << name;
        const std::string lines = testing::PrintToString(log.messages());
        EXPECT_EQ(code == 0, lines == "{}" || lines.find("(null)") != std::string::npos) << name;
        EXPECT_FALSE(exists("/opt/x") || exists("/opt/ulx/x")) << name;
    }
    jx_set_module_name("app");
    const Handle handle = open_handle("n", "w+");
    EXPECT_EQ(jx_fwrite("t", 1u << 16, 1u << 16, handle.get()), JX_ERR_PARAM3);
    EXPECT_EQ(jx_fwrite("t", 1, UINT32_MAX, handle.get()), JX_ERR_PARAM3);
    EXPECT_EQ(jx_clear_module_file("n", "/"), JX_ERR_PARAM2);
}

// A new group starts on a line of its own and never takes an existing name.
TEST_F(SandboxTest, NewGroupsStartOnTheirOwnLineWithAFreshNumber) {
    const std::tuple<std::string, const char *, int, int, std::string> rows[] = {
        {"[S1]\nsrc=/a\n[R2]\nsrc=/b\n", "n1", JX_PROTECT_E, 0, "[E3]\n"},
        {"[E1]\nsrc=/a\nprivilege=1", "n2", JX_PROTECT_C, 0, "\n[C2]\n"},
        {"[E1]\nsrc=/a\n[E5]\nsrc=/b\n", "n3", JX_PROTECT_E, 0, "[E6]\n"},
        {"[C2]\nsrc=/a\n", "n4", JX_PROTECT_C, 0, "[C3]\n"},
        {"[C99999999999999999999]\nsrc=/a\n", "n5", JX_PROTECT_C, JX_ERR_WRITE, ""}};
    for (const auto &[table, name, mode, code, appended] : rows) {
        write_file(kTable, table);
        EXPECT_EQ(register_items("app", {item_cfg(name, mode)}), code) << name;
        EXPECT_EQ(read_file(kTable).substr(0, table.size() + appended.size()), table + appended);
    }
}

// A FIFO or device where a file belongs is answered in bounded time (the alarm
// turns a hang into a failure) and its node keeps its mode.
TEST_F(SandboxTest, FifosAndDevicesWhereFilesBelongNeverHangAndKeepTheirMode) {
    write_file(kP + "ok", "x");
    write_file(kP + "ok.sha256", side_file_text("x"));
    write_file(kP + "f", "x");
    const auto valid = [](const char *file, const char *side) {
        return is_file_valid((kP + file).c_str(), (kP + side).c_str());
    };
    const auto reg = [](const char *name) { return register_items("app", {item_cfg(name, 2)}); };
    // The node is made a FIFO, or with "->" a link to /dev/zero.
    const std::tuple<std::string, std::function<int()>, int> rows[] = {
        {"", [&] { return valid("ok", "ok.sha256"); }, 1},
        {kP + "f.sha256", [] { return is_ram_file_valid((kP + "f").c_str()); }, 0},
        {kP + "g", [&] { return valid("g", "ok.sha256"); }, 0},
        {"->" + kP + "ok2.sha256", [&] { return valid("ok", "ok2.sha256"); }, 0},
        {kP + "app_w", [&] { return reg("w"); }, JX_ERR_OPEN},
        {"/opt/ulx/save/app_d.sha256", [&] { return reg("d"); }, 0},
        {kTable, [&] { return reg("t"); }, JX_ERR_OPEN}};
    for (const auto &[node, call, expected] : rows) {
        const bool link = node.rfind("->", 0) == 0;
        unlink(node.c_str());  // the table exists once a row registered
        ASSERT_EQ(node.empty() ? 0
                  : link       ? symlink("/dev/zero", node.c_str() + 2)
                               : mkfifo(node.c_str(), 0600),
                  0);
        EXPECT_EQ(in_child([&] { return alarm(20), call() == expected ? 0 : 1; }), 0) << node;
        EXPECT_TRUE(node.empty() || link || (stat_of(node).st_mode & 07777) == 0600) << node;
    }
}

// Owner, group and mode change only on a regular file of one link that the
// target resolves to inside /opt/ulx/, also when a link or FIFO is swapped in
// after the library looked (the alarm turns a hang into a failure).
TEST_F(SandboxTest, PrivilegesChangeOnlyARegularFileOfOneLinkInside) {
    const std::string ref = kP + "ref", in = kP + "in", t = kP + "t", out = "/opt/out";
    write_file(ref, "r");
    ASSERT_EQ(chown(ref.c_str(), 1000, 1001) | chmod(ref.c_str(), 0640), 0);
    // At t: f a file, i a link inside, o a link out, h a hard link out, p a FIFO.
    const auto plant = [&](char kind) {
        const std::string to = kind == 'i' ? in : out;
        return unlink(t.c_str()), kind == 'f'   ? (write_file(t, "t"), chmod(t.c_str(), 0600))
                                  : kind == 'h' ? link(to.c_str(), t.c_str())
                                  : kind == 'p' ? mkfifo(t.c_str(), 0600)
                                                : symlink(to.c_str(), t.c_str());
    };
    // planted node, node swapped in before the open (0: none), file looked at
    const std::tuple<char, char, std::string, int> rows[] = {{'f', 0, t, 0},
                                                             {'i', 0, in, 0},
                                                             {'o', 0, out, JX_ERR_PARAM2},
                                                             {'h', 0, out, JX_ERR_PARAM2},
                                                             {'p', 0, t, JX_ERR_PARAM2},
                                                             {'f', 'o', out, JX_ERR_PARAM2},
                                                             {'f', 'p', t, JX_ERR_PARAM2}};
    for (const auto &[planted, swapped, seen, code] : rows) {
        for (const std::string &file : {in, out})
            write_file(file, "x"), chmod(file.c_str(), 0600);
        ASSERT_EQ(plant(planted), 0);
        const std::string before = access_of(seen);
        EXPECT_EQ(in_child([&] {
                      LogCapture log;
                      g_swap = [&] { swapped == 0 || plant(swapped); };
                      jx::io().open = swapping_open;
                      const int rc = (alarm(20), jx_sync_privilege(ref.c_str(), t.c_str()));
                      jx_set_privilege(t.c_str(), privilege_of(0x666, 1002));
                      const std::string lines = testing::PrintToString(log.messages());
                      return (rc != code) +
                             2 * ((lines.find(" refused: ") == std::string::npos) == (code != 0));
                  }),
                  0)
            << planted << swapped;
        EXPECT_EQ(access_of(seen), code == 0 ? "666 1000:1002" : before) << planted << swapped;
    }
}

// A working copy linked inside /opt/ulx/ is used through its link; one linked
// out of it, or hard-linked, is never opened, written or cleared. A log file
// is written through its link and keeps the path it was given.
TEST_F(SandboxTest, LinksInsideAreFollowedLinksOutAndHardLinksAreRefused) {
    ASSERT_EQ(register_items("app", {item_cfg("a", 1), item_cfg("o", 1), item_cfg("h", 1),
                                     item_cfg("k", 1, 1)}),
              0);
    const std::string real = kP + "real", out = "/opt/out", log_path = "/opt/ulx/save/l";
    write_file(out, "outside");
    write_file(real, "");
    write_file(log_path + ".real", "");
    const mode_t mode = stat_of(out).st_mode;
    const std::tuple<const char *, bool, std::string, std::string> rows[] = {
        {"a", false, real, real}, {"o", false, out, ""}, {"h", true, out, ""}};
    for (const auto &[name, hard, target, opened] : rows) {
        const std::string at = kP + "app_" + name;
        ASSERT_EQ((unlink(at.c_str()), (hard ? link : symlink)(target.c_str(), at.c_str())), 0);
        const Handle handle = open_handle(name, "a+");
        EXPECT_EQ(handle ? std::string(handle->file_path) : "", opened) << name;
        EXPECT_EQ(handle ? write_text(handle.get(), "new") : 3, 3) << name;
        EXPECT_EQ(jx_clear_module_file(name, "app"), opened.empty() ? JX_ERR_OPEN : 0) << name;
    }
    const Handle sized = open_handle("k", "a");  // its package is a link out: never packed
    ASSERT_EQ(symlink(out.c_str(), (kP + "app_k.tar.gz").c_str()), 0);
    EXPECT_EQ(write_text(sized.get(), "12") + write_text(sized.get(), "3"), 2);
    EXPECT_EQ(read_file(out) + read_file(real), "outside");
    EXPECT_EQ(stat_of(out).st_mode, mode);
    JxItemCfg cfg = item_cfg("l", JX_PROTECT_C, 1, log_path.c_str());
    JxFile *log = (symlink((log_path + ".real").c_str(), cfg.path),
                   link(out.c_str(), (log_path + ".tar.gz").c_str()), jx_fopen_log_file(&cfg, "a"));
    ASSERT_NE(log, nullptr);
    EXPECT_EQ(std::string(log->file_path) + std::to_string(jx_fwrite_log("x", 1, 1, log)),
              log_path + "1");
    LogCapture lines;  // its package, hard-linked out, is refused: the log grows on
    EXPECT_EQ(jx_fwrite_log("y", 1, 1, log), 1);
    jx_fclose_log_file(log);
    const std::string copied = "/opt/ulx/save/c";  // nor is its temporary copy, planted as a link
    JxItemCfg copied_cfg = item_cfg("c", JX_PROTECT_C, 1, copied.c_str());
    JxFile *copying =
        (symlink(out.c_str(), "/opt/ulx/save/md_so_c"), jx_fopen_log_file(&copied_cfg, "a"));
    EXPECT_EQ(jx_fwrite_log("x", 1, 1, copying) + jx_fwrite_log("y", 1, 1, copying), 2);
    jx_fclose_log_file(copying);
    EXPECT_EQ(read_file(log_path + ".real") + read_file(out), "xyoutside");
    EXPECT_TRUE(lines.contains("l.tar.gz refused: not a regular file of one link."));
    EXPECT_TRUE(lines.contains("md_so_c refused: not a regular file of one link."));
}

// A protected write goes through the descriptor it read from: never to a file
// the path no longer names, never out through a directory swapped for a link.
TEST_F(SandboxTest, ProtectedWritesLandInTheFileThePathNamesInside) {
    ASSERT_EQ(register_items("app", {item_cfg("d", JX_PROTECT_E)}), 0);
    const std::string at = kP + "app_d";
    const auto replace = [&] {
        ASSERT_EQ(unlink(at.c_str()), 0);
        write_file(at, "fresh");
        write_file(at + ".sha256", side_file_text("fresh"));
    };
    const auto swap_dir = [] {
        ASSERT_EQ(rename("/opt/ulx/pram", "/opt/ulx/was") + mkdir("/opt/away", 0755), 0);
        write_file("/opt/away/app_d", "away");
        ASSERT_EQ(symlink("/opt/away", "/opt/ulx/pram"), 0);
    };
    const std::tuple<const char *, std::function<void()>, int, std::string, std::string> rows[] = {
        {"r+", replace, 3, at, "newsh"}, {"a", swap_dir, 0, "/opt/away/app_d", "away"}};
    for (const auto &[mode, change, written, path, content] : rows) {
        write_file(at, "");
        write_file(at + ".sha256", side_file_text(""));
        const Handle handle = open_handle("d", mode);
        ASSERT_NE(handle, nullptr) << mode;
        change();
        EXPECT_EQ(write_text(handle.get(), "new"), written) << mode;
        EXPECT_EQ(read_file(path), content) << mode;
    }
}

}  // namespace
