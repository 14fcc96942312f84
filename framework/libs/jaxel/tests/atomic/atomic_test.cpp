// Whatever cuts a mutating call short, the next open or start-up finds the old
// content or the new, whole, with matching side files and no redo record left.
#include <algorithm>
#include <cstddef>
#include <fcntl.h>
#include <filesystem>
#include <sstream>
#include <sys/file.h>
#include <unistd.h>

#include <glib.h>
#include <openssl/evp.h>

#include "journal/journal.h"
#include "journal/record.h"
#include "support/support.h"

namespace jx::test {
namespace {

const std::string kWork = "/opt/ulx/pram/app_x", kKeys = "/opt/ulx/pram/app_keys";
const char kPram[] = "/opt/ulx/pram/blob", kSave[] = "/opt/ulx/save/blob";
const char kFlash[] = "/opt/ulx/pflash/blob";

// One call on item "x" (through a handle opened with open_mode, when given),
// 0 on success. A truncating open is a call of its own, so the empty file
// after it is a state too. A row is swept in each of its modes (letters).
struct Row {
    std::string name;
    const char *open_mode;
    int (*act)(JxFile *);
    const char *between = nullptr;  // a state the call passes through, if any
    std::string target = kWork;
    int32_t package = 0;
    const char *modes = "ESPRC";
    uint32_t mode = JX_PROTECT_E;
};

void PrintTo(const Row &row, std::ostream *out) { *out << row.name; }

void on_package(JxModuleItem *) {}

std::vector<JxItemCfg> items_of(const Row &row) {  // an F file is named by its path
    return {item_cfg(row.mode == JX_PROTECT_F ? kWork.c_str() : "x", row.mode, row.package, nullptr,
                     row.package ? on_package : nullptr)};
}

int write_back_keys(JxFile *) {
    const int fd = open(kKeys.c_str(), O_RDWR);
    GKeyFile *key = jx_open_key_file(kKeys.c_str(), fd, 1);
    g_key_file_set_string(key, "g", "k", "new");
    const int32_t rc = key ? jx_writeback_key_file(key, kKeys.c_str()) : -1;
    (void)jx_close_key_file(key, fd, 1);
    return close(fd) | rc;
}

int register_y(JxFile *) { return register_items("app", {item_cfg("y", JX_PROTECT_E)}); }

int log_new(JxFile *) {  // x's own file, as a log
    JxItemCfg cfg = item_cfg("app_x", JX_PROTECT_C, 4, kWork.c_str());
    const Handle log(jx_fopen_log_file(&cfg, "a"), jx_fclose_log_file);
    return jx_fwrite_log("new", 3, 1, log.get()) - 1;
}

template <const char *kPath>
int set_new(JxFile *) {
    return jx_set_content(kPath, "new", 3);
}

const Row kCalls[] = {
    {"append", "a", [](JxFile *f) { return write_text(f, "new") - 3; }},
    {"truncate", "w", [](JxFile *f) { return write_text(f, "fresh") - 5; }, ""},
    {"fputc", "a", [](JxFile *f) { return jx_fputc('!', f); }},
    {"insert", "r+", [](JxFile *f) { return jx_insert("in", 2, 1, f); }},
    {"delete", "r+", [](JxFile *f) { return jx_delete(2, 0, f); }},
    {"modify", "r+", [](JxFile *f) { return jx_modify("XY", 2, 0, 1, f); }},
    {"clear", nullptr, [](JxFile *) { return jx_clear_file("x"); }},
    {"rollover", "a", [](JxFile *f) { return write_text(f, "new") - 3; }, "", kWork, 4, "ESPRC"},
    {"log_rollover", nullptr, log_new, "", kWork, 4, "C"},
    {"factory_restore", nullptr, [](JxFile *) { return jx_recover_factory_cfg("/opt/ulx/save"); },
     nullptr, kWork, 0, "F"},
    {"set_pram", nullptr, set_new<kPram>, nullptr, kPram, 0, "E"},
    {"set_save", nullptr, set_new<kSave>, nullptr, kSave, 0, "E"},
    {"set_flash", nullptr, set_new<kFlash>, nullptr, kFlash, 0, "E"},
    {"key_file_write_back", nullptr, write_back_keys, nullptr, kKeys, 0, "E"},
    {"registration", nullptr, register_y, nullptr, "/opt/ulx/pram/fsync_reg.ini", 0, "E"},
};

std::vector<Row> all_rows() {
    std::vector<Row> rows;
    for (const Row &call : kCalls)
        for (const char letter : std::string(call.modes)) {
            rows.push_back(call);
            rows.back().name += std::string("_") + letter;
            rows.back().mode = static_cast<uint32_t>(std::string("RCESPF").find(letter));
        }
    return rows;
}

int act(const Row &row) {
    const Handle handle =
        row.open_mode ? open_handle("x", row.open_mode) : Handle(nullptr, nullptr);
    return row.open_mode && !handle ? -1 : row.act(handle.get());
}

int set_up(const Row &row) {
    int failed = register_items("app", items_of(row));
    if (row.target == kKeys) {
        write_file(kKeys, "[g]\nk=old\n");
        write_file(kKeys + ".sha256", side_file_text("[g]\nk=old\n"));
    } else if (row.target.ends_with("/blob")) {
        failed |= jx_set_content(row.target.c_str(), "old\n", 4);
    }
    if (row.mode == JX_PROTECT_F)  // with its factory copy
        return write_file(kWork, "old\n"), write_file("/opt/ulx/save/app_x", "new"), failed;
    return failed | act({"", "a", [](JxFile *f) { return write_text(f, "old\n") - 4; }});
}

// The call (with !call a start-up) cut before step `cut`; with cut 0 it
// returns the number of steps.
int run_cut(const Row &row, CrashModel model, int cut, bool call) {
    if (call && register_items("app", items_of(row)) != JX_OK)
        return 251;
    PowerLoss power(model, cut);
    if (!call)
        return register_items("app", items_of(row)) == JX_OK ? 0 : 252;
    return act(row) == 0 ? std::min(power.steps(), 250) : 253;
}

// States in the order a call passes through them, then the faults.
enum Verdict { kOld, kBetween, kNew, kTorn, kEmpty, kUnopenable, kRecordLeft, kBadSide, kBadPack };
const char *const kVerdicts[] = {
    "", "", "", "torn", "empty", "unopenable", "record left", "side file wrong", "package wrong"};

bool record_pending() {
    std::error_code err;
    return !std::filesystem::is_empty("/opt/ulx/pram/.jaxel-redo", err) && !err;
}

int judge(const Row &row, const std::string &old, const std::string &now) {
    if (register_items("app", items_of(row)) != JX_OK ||
        (row.mode != JX_PROTECT_F && !open_handle("x", "r")))
        return kUnopenable;
    if (record_pending())
        return kRecordLeft;
    const std::string save = tier_path("app", "x", 1);
    for (const std::string &file : {row.target, save, save + ".bak", kWork + ".bak"}) {
        if (exists(file + ".sha256") &&
            read_file(file + ".sha256") != side_file_text(read_file(file))) {
            return kBadSide;
        }
    }
    const std::string found = read_file(row.target);
    // The package holds the old content exactly when the file no longer does.
    if (row.package && tar("-xzOf", row.target + ".tar.gz") != (found == old ? "<failed>" : old))
        return kBadPack;
    return found == old                          ? kOld
           : found == now                        ? kNew
           : row.between && found == row.between ? kBetween
           : found.empty()                       ? kEmpty
                                                 : kTorn;
}

// A power cut before every durable step of every call, in every mode and crash
// model; a descriptor another process holds must still name the live file.
class Sweep : public SandboxTest, public ::testing::WithParamInterface<Row> {};

TEST_P(Sweep, EveryCutEndsInTheOldOrTheNewState) {
    const Row &row = GetParam();
    unsigned char digest[EVP_MAX_MD_SIZE];  // forked children inherit the set-up digest tables
    ASSERT_EQ(EVP_Digest("", 0, digest, nullptr, EVP_sha256(), nullptr), 1);
    reset_sandbox();  // refuses to run outside the sandbox, so wiping below is safe
    const auto fresh = [&] {
        for (const char *tier : {"/opt/ulx/pram", "/opt/ulx/save", "/opt/ulx/pflash"}) {
            std::filesystem::remove_all(tier);
            std::filesystem::create_directory(tier);
        }
        return in_child([&] { return set_up(row); }) == 0;
    };
    ASSERT_TRUE(fresh());
    const std::string old = read_file(row.target);
    const int steps = in_child([&] { return run_cut(row, CrashModel::kStrict, 0, true); });
    const std::string now = read_file(row.target);
    ASSERT_TRUE(steps > 0 && steps < 250 && now != old) << row.name << " ends with " << steps;
    for (const auto &[model, model_name] : {std::pair{CrashModel::kPersistentRam, "RAM kept"},
                                            {CrashModel::kStrict, "strict"},
                                            {CrashModel::kStrictTorn, "strict, torn"}}) {
        int reached = kOld;
        for (int k = 1; k <= steps; ++k) {
            bool finished = false, pending = false;
            // Under the strict model a restart that finds a record is cut too, at each step.
            for (int j = 0; j == 0 || (model == CrashModel::kStrict && pending && !finished); ++j) {
                ASSERT_TRUE(fresh());
                const int holder = open(row.target.c_str(), O_RDONLY);
                const ino_t inode = stat_of(row.target).st_ino;
                std::ostringstream where;
                where << row.name << " (" << model_name << "), cut before step " << k << " of "
                      << steps << (j > 0 ? ", restart cut before step " + std::to_string(j) : "");
                EXPECT_EQ(in_child([&] { return run_cut(row, model, k, true); }), kCrashExitStatus)
                    << where.str() << ": did not reach that step";
                pending = record_pending();
                finished = j > 0 && in_child([&] { return run_cut(row, model, j, false); }) !=
                                        kCrashExitStatus;
                const int verdict = in_child([&] { return judge(row, old, now); });
                EXPECT_TRUE(verdict >= reached && verdict <= kNew)
                    << where.str() << ": found "
                    << (verdict < 0         ? "a crash"
                        : verdict < reached ? "an earlier state"
                                            : kVerdicts[verdict]);
                reached = j == 0 && verdict <= kNew ? verdict : reached;
                // One process's descriptor and lock must stay on the live file.
                const bool last = k == steps && j == 0;
                EXPECT_TRUE(stat_of(row.target).st_ino == inode &&
                            (!last || (flock(holder, LOCK_EX | LOCK_NB) == 0 &&
                                       in_child([&] {
                                           return flock(open(row.target.c_str(), O_RDONLY),
                                                        LOCK_EX | LOCK_NB);
                                       }) != 0)))
                    << where.str() << ": another process's descriptor lost the live file";
                close(holder);
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Calls, Sweep, ::testing::ValuesIn(all_rows()),
                         [](const auto &call) { return call.param.name; });

// Recomputes a record's header digest, so that only the damage itself can give it away.
void reseal(std::string &record) {
    GChecksum *sum = g_checksum_new(G_CHECKSUM_SHA256);
    const auto *bytes = reinterpret_cast<const guchar *>(record.data());
    g_checksum_update(sum, bytes, offsetof(redo::Header, digest));
    g_checksum_update(sum, bytes + sizeof(redo::Header), 2 * sizeof(redo::Entry));
    gsize size = redo::kDigestSize;
    g_checksum_get_digest(sum, reinterpret_cast<guint8 *>(&record[offsetof(redo::Header, digest)]),
                          &size);
    g_checksum_free(sum);
}

// A record cut short or damaged never validates: the open drops it and leaves
// the file as it was. An intact one is applied.
TEST(DamagedRecord, IsDroppedByTheOpenAndTheFileLeftAlone) {
    const std::string fresh = "new", side = side_file_text(fresh), side_path = kWork + ".sha256";
    const Transaction::Entry entries[] = {
        // two whole-file writes
        {true, true, kWork.c_str(), fresh.data(), fresh.size(), nullptr, 0, fresh.size()},
        {true, true, side_path.c_str(), side.data(), side.size(), nullptr, 0, side.size()}};
    std::size_t length = 0;
    const GPtr<uint8_t> intact = redo::encode(entries, 2, length);
    ASSERT_TRUE(intact);
    const std::string path = redo_record_path(kWork.c_str());
    const std::pair<const char *, void (*)(std::string &)> rows[] = {
        {"intact", [](std::string &r) { reseal(r); }},
        {"empty", [](std::string &r) { r.clear(); }},
        {"one byte short", [](std::string &r) { r.pop_back(); }},
        {"wrong magic", [](std::string &r) { r[0] ^= 1, reseal(r); }},
        {"wrong version",
         [](std::string &r) { r[offsetof(redo::Header, version)] ^= 2, reseal(r); }},
        {"bad header digest", [](std::string &r) { r[offsetof(redo::Header, digest)] ^= 1; }},
        {"bad data digest", [](std::string &r) { r.back() ^= 1; }},
        {"trailing bytes", [](std::string &r) { r += "x"; }},
    };
    for (const auto &[damage, apply] : rows) {
        std::string record(reinterpret_cast<const char *>(intact.get()), length);
        apply(record);
        reset_sandbox();
        EXPECT_EQ(in_child([&] {
                      if (set_up({"", nullptr, nullptr}) != 0)
                          return 1;
                      std::filesystem::create_directories(path.substr(0, path.rfind('/')));
                      write_file(path, record);
                      fresh_census();  // the record stands for one from before a power cut
                      return open_handle("x", "r") ? 0 : 2;
                  }),
                  0)
            << damage;
        const std::string want = damage == std::string("intact") ? fresh : "old\n";
        EXPECT_TRUE(read_file(kWork) == want && read_file(side_path) == side_file_text(want) &&
                    !exists(path))
            << damage << ": found " << read_file(kWork);
    }
}

}  // namespace
}  // namespace jx::test
