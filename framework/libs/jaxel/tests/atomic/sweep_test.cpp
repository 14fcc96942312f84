// A power cut before every durable step of every mutating call, in every mode
// and crash model: the next start-up finds the old content or the new, whole,
// with matching side files and no redo record left, and a descriptor another
// process holds still names the live file and its lock still excludes.
#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <sstream>
#include <sys/file.h>
#include <unistd.h>

#include <glib.h>

#include "support/builders.h"
#include "support/io_faults.h"
#include "support/oracle.h"
#include "support/power_loss.h"
#include "support/sandbox.h"

namespace jx::test {
namespace {

const std::string kWork = "/opt/ulx/pram/app_x", kKeys = "/opt/ulx/pram/app_keys";
const char *const kBlobs[] = {"/opt/ulx/pram/blob", "/opt/ulx/save/blob", "/opt/ulx/pflash/blob"};

struct Row {
    std::string name;
    uint32_t mode;
    int (*act)();
    std::string target = kWork;
    int32_t package = 0;
};

void PrintTo(const Row &row, std::ostream *out) { *out << row.name; }

void on_package(JxModuleItem *) {}

std::vector<JxItemCfg> items_of(const Row &row) {
    return {item_cfg("x", row.mode, row.package, nullptr, row.package ? on_package : nullptr)};
}

int via(const char *open_mode, bool (*call)(JxFile *)) {
    const Handle handle = open_handle("x", open_mode);
    return handle && call(handle.get()) ? 0 : 1;
}

int write_back_keys() {
    const int fd = open(kKeys.c_str(), O_RDWR);
    GKeyFile *key = jx_open_key_file(kKeys.c_str(), fd, 1);
    g_key_file_set_string(key, "g", "k", "new");
    const int32_t rc = key ? jx_writeback_key_file(key, kKeys.c_str()) : -1;
    (void)jx_close_key_file(key, fd, 1);
    return close(fd) == 0 && rc == 0 ? 0 : 1;
}

template <int kTier>
int set_blob() {
    return jx_set_content(kBlobs[kTier], "new", 3);
}

// Calls through a handle, as {name, act, package size}, swept in every mode.
const std::tuple<const char *, int (*)(), int32_t> kHandleCalls[] = {
    {"append", [] { return via("a", [](JxFile *f) { return write_text(f, "new") == 3; }); }, 0},
    {"truncate", [] { return via("w", [](JxFile *f) { return write_text(f, "fresh") == 5; }); }, 0},
    {"fputc", [] { return via("a", [](JxFile *f) { return jx_fputc('!', f) == 0; }); }, 0},
    {"insert", [] { return via("r+", [](JxFile *f) { return !jx_insert("in", 2, 1, f); }); }, 0},
    {"delete", [] { return via("r+", [](JxFile *f) { return !jx_delete(2, 0, f); }); }, 0},
    {"modify", [] { return via("r+", [](JxFile *f) { return !jx_modify("XY", 2, 0, 1, f); }); }, 0},
    {"clear", [] { return jx_clear_file("x") == JX_OK ? 0 : 1; }, 0},
    {"rollover", [] { return via("a", [](JxFile *f) { return write_text(f, "new") == 3; }); }, 4},
};

std::vector<Row> all_rows() {
    std::vector<Row> rows;
    for (const auto &[name, act, package] : kHandleCalls) {
        for (const auto &[letter, mode] : {std::pair{"E", JX_PROTECT_E},
                                           {"S", JX_PROTECT_S},
                                           {"P", JX_PROTECT_P},
                                           {"R", JX_PROTECT_R},
                                           {"C", JX_PROTECT_C}}) {
            rows.push_back({std::string(name) + "_" + letter, mode, act, kWork, package});
        }
    }
    rows.push_back({"set_content_pram", JX_PROTECT_E, set_blob<0>, kBlobs[0]});
    rows.push_back({"set_content_save", JX_PROTECT_E, set_blob<1>, kBlobs[1]});
    rows.push_back({"set_content_flash", JX_PROTECT_E, set_blob<2>, kBlobs[2]});
    rows.push_back({"key_file_write_back", JX_PROTECT_E, write_back_keys, kKeys});
    rows.push_back({"registration", JX_PROTECT_E,
                    [] { return register_items("app", {item_cfg("y", JX_PROTECT_E)}); },
                    "/opt/ulx/pram/fsync_reg.ini"});
    return rows;
}

int set_up(const Row &row) {
    write_file(kKeys, "[g]\nk=old\n");
    write_file(kKeys + ".sha256", side_file_text("[g]\nk=old\n"));
    int failed = register_items("app", items_of(row));
    for (const char *blob : kBlobs) {
        failed |= jx_set_content(blob, "old\n", 4);
    }
    return failed | via("a", [](JxFile *f) { return write_text(f, "old\n") == 4; });
}

// The call (or with !act a start-up) cut before step `cut`; with cut 0 the
// call's number of steps.
int run_cut(const Row &row, CrashModel model, int cut, bool act) {
    if (act && register_items("app", items_of(row)) != JX_OK) {
        return 251;
    }
    PowerLoss power(model, cut);
    if (!act) {
        return register_items("app", items_of(row)) == JX_OK ? 0 : 252;
    }
    return row.act() == 0 ? std::min(power.steps(), 250) : 253;
}

enum Verdict { kOld, kNew, kTorn, kEmpty, kUnopenable, kRecordLeft, kSideFileWrong };
const char *const kVerdicts[] = {
    "old", "new", "torn", "empty", "unopenable", "record left", "a side file that does not match"};

int judge(const Row &row, const std::string &old, const std::string &now) {
    if (register_items("app", items_of(row)) != JX_OK || !open_handle("x", "r")) {
        return kUnopenable;
    }
    std::error_code err;
    if (std::filesystem::directory_iterator("/opt/ulx/pram/.jaxel-redo", err) !=
        std::filesystem::directory_iterator()) {
        return kRecordLeft;
    }
    const std::string save = tier_path("app", "x", 1);
    for (const std::string &file : {row.target, save, save + ".bak", kWork + ".bak"}) {
        const std::string side = file + ".sha256";
        if (exists(side) && read_file(side) != side_file_text(read_file(file))) {
            return kSideFileWrong;
        }
    }
    const std::string found = read_file(row.target);
    return found == old ? kOld : found == now ? kNew : found.empty() ? kEmpty : kTorn;
}

class Sweep : public SandboxTest, public ::testing::WithParamInterface<Row> {};

TEST_P(Sweep, EveryCutEndsInTheOldOrTheNewState) {
    const Row &row = GetParam();
    const auto fresh = [&] { return reset_sandbox(), in_child([&] { return set_up(row); }) == 0; };
    ASSERT_TRUE(fresh());
    const std::string old = read_file(row.target);
    const int steps = in_child([&] { return run_cut(row, CrashModel::kStrict, 0, true); });
    const std::string now = read_file(row.target);
    ASSERT_TRUE(steps > 0 && steps < 250 && now != old) << row.name << " ends with " << steps;
    const std::pair<CrashModel, const char *> models[] = {
        {CrashModel::kPersistentRam, "persistent RAM"},
        {CrashModel::kStrict, "strict"},
        {CrashModel::kStrictTorn, "strict, torn"}};
    for (const auto &[model, model_name] : models) {
        bool was_new = false;
        for (int k = 1; k <= steps; ++k) {
            bool finished = false;
            for (int j = 0; j == 0 || (model == CrashModel::kStrict && !finished); ++j) {
                ASSERT_TRUE(fresh());
                const int holder = open(row.target.c_str(), O_RDONLY);
                const ino_t inode = stat_of(row.target).st_ino;
                std::ostringstream where;
                where << row.name << " (" << model_name << "), cut before step " << k << " of "
                      << steps << (j > 0 ? ", restart cut before step " + std::to_string(j) : "");
                EXPECT_EQ(in_child([&] { return run_cut(row, model, k, true); }), kCrashExitStatus)
                    << where.str() << ": did not reach that step";
                finished = j > 0 && in_child([&] { return run_cut(row, model, j, false); }) !=
                                        kCrashExitStatus;
                const int verdict = in_child([&] { return judge(row, old, now); });
                EXPECT_TRUE(verdict == kNew || (verdict == kOld && !was_new))
                    << where.str() << ": found "
                    << (verdict < 0       ? "a crash"
                        : verdict == kOld ? "old after new"
                                          : kVerdicts[verdict]);
                was_new |= j == 0 && verdict == kNew;
                EXPECT_TRUE(stat_of(row.target).st_ino == inode &&
                            flock(holder, LOCK_EX | LOCK_NB) == 0 &&
                            in_child([&] {
                                return flock(open(row.target.c_str(), O_RDONLY), LOCK_EX | LOCK_NB);
                            }) != 0)
                    << where.str() << ": another process's descriptor lost the live file";
                close(holder);
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Calls, Sweep, ::testing::ValuesIn(all_rows()),
                         [](const auto &call) { return call.param.name; });

}  // namespace
}  // namespace jx::test
