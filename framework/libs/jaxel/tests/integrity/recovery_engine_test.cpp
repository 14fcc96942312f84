#include <array>
#include <cerrno>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <glib.h>
#include <gtest/gtest.h>

#include "frame/frame.h"
#include "jaxel.h"
#include "recovery/recovery.h"
#include "support/io_faults.h"
#include "support/log_capture.h"
#include "support/registration.h"
#include "support/sandbox.h"

namespace {

using jx::test::Call;
using jx::test::exists;
using jx::test::read_file;
using jx::test::write_file;
using RecoveryEngineTest = jx::test::SandboxTest;
using Messages = std::vector<std::string>;
using File = std::optional<std::string>;
// Contents of dst, crc, bak and bakcrc; nullopt is an absent file.
using State = std::array<File, 4>;

const File kAbsent = std::nullopt;

std::string sha(const std::string &data) {
    gchar *text = g_compute_checksum_for_data(
        G_CHECKSUM_SHA256, reinterpret_cast<const guchar *>(data.data()), data.size());
    std::string result(text);
    g_free(text);
    return result;
}

// The 65-byte checksum file of data.
std::string record(const std::string &data) { return sha(data) + std::string(1, '\0'); }

jx::RegItem save_item(const std::string &name, ProtectMode mode = JX_PROTECT_E) {
    jx::RegItem item{};
    const std::string dst = "/opt/ulx/save/" + name;
    g_strlcpy(item.src, ("/opt/ulx/pram/" + name).c_str(), sizeof item.src);
    g_strlcpy(item.dst, dst.c_str(), sizeof item.dst);
    if (mode != JX_PROTECT_C) {
        g_strlcpy(item.crc, (dst + ".sha256").c_str(), sizeof item.crc);
        g_strlcpy(item.bak, (dst + ".bak").c_str(), sizeof item.bak);
        g_strlcpy(item.bakcrc, (dst + ".bak.sha256").c_str(), sizeof item.bakcrc);
    }
    item.protect_mode = mode;
    return item;
}

std::array<const char *, 4> paths_of(const jx::RegItem &item) {
    return {item.dst, item.crc, item.bak, item.bakcrc};
}

void lay_out(const jx::RegItem &item, const State &state) {
    const auto paths = paths_of(item);
    for (size_t i = 0; i < paths.size(); ++i) {
        if (state[i]) {
            write_file(paths[i], *state[i]);
        }
    }
}

State observe(const jx::RegItem &item) {
    State state;
    const auto paths = paths_of(item);
    for (size_t i = 0; i < paths.size(); ++i) {
        if (exists(paths[i])) {
            state[i] = read_file(paths[i]);
        }
    }
    return state;
}

struct Row {
    const char *what;
    const char *name;
    State before;
    int fail_fopen;  // the nth write that cannot open its file; 0 for none
    int32_t result;
    State after;
    Messages log;
};

// Every outcome of the save-area branch and of the comparison of main and
// backup that it runs when both copies exist.
TEST_F(RecoveryEngineTest, SaveAreaOutcomes) {
    const std::string a = "content A";
    const std::string n = sha(a) + "\n";
    const Messages both_fail = {"(app_cfg.bak)check CRC failed ,(checksumType:2).",
                                "(app_cfg)check CRC failed ,(checksumType:2).",
                                "main & use all invalid(app_cfg)(checksumType:2).",
                                "jx_recover_dst_file_in_fs failed: ret -3999984."};
    const Row rows[] = {
        {"all four agree",
         "app_cfg",
         {a, record(a), a, record(a)},
         0,
         0,
         {a, record(a), a, record(a)},
         {}},
        {"main sound, backup corrupt",
         "app_cfg",
         {a, record(a), "torn", record("old")},
         0,
         0,
         {a, record(a), a, record(a)},
         {"recover file(app_cfg.bak) successfully.(checksumType:2)."}},
        {"main corrupt, backup sound",
         "app_cfg",
         {"torn", record(a), a, record(a)},
         0,
         0,
         {a, record(a), a, record(a)},
         {"(app_cfg.bak)check CRC failed ,(checksumType:2).",
          "recover file(app_cfg) successfully.(checksumType:2)."}},
        {"both corrupt, md_so_ backup",
         "md_so_cfg",
         {"main", record("x"), "back", record("y")},
         0,
         0,
         {"main", record("main"), "main", record("main")},
         {"(md_so_cfg.bak)check CRC failed ,(checksumType:2).",
          "(md_so_cfg)check CRC failed ,(checksumType:2).",
          "AC lost, CRC error.use main recover bak(md_so_cfg.bak)(checksumType:2)."}},
        {"both corrupt elsewhere",
         "app_cfg",
         {"main", record("x"), "back", record("y")},
         0,
         JX_ERR_CRC,
         {"main", record("x"), "back", record("y")},
         both_fail},
        {"identical copies, identical wrong digests",
         "app_cfg",
         {a, record("x"), a, record("x")},
         0,
         JX_ERR_CRC,
         {a, record("x"), a, record("x")},
         both_fail},
        // Agreement needs the exact text; the copy only its first 64 characters.
        {"identical copies, digests with a newline",
         "app_cfg",
         {a, n, a, n},
         0,
         0,
         {a, n, a, record(a)},
         {"recover file(app_cfg.bak) successfully.(checksumType:2)."}},
        {"main without checksum file",
         "app_cfg",
         {"main", kAbsent, "back", record("back")},
         0,
         0,
         {"main", kAbsent, "back", record("back")},
         {}},
        {"main corrupt, backup without checksum file",
         "app_cfg",
         {"torn", record(a), a, kAbsent},
         0,
         0,
         {"torn", record(a), a, kAbsent},
         {"(app_cfg.bak)check CRC failed ,(checksumType:2)."}},
        {"only the backup, unverified",
         "app_cfg",
         {kAbsent, kAbsent, "back", record("x")},
         0,
         0,
         {"back", record("back"), "back", record("back")},
         {}},
        {"only the backup, its checksum file cannot be written",
         "app_cfg",
         {kAbsent, kAbsent, "back", kAbsent},
         1,
         JX_ERR_OPEN,
         {kAbsent, kAbsent, "back", kAbsent},
         {"g_fopen (app_cfg.bak.sha256) failed: errno 13(Permission denied).",
          "jx_recover_directly(bak->main) failed: -3999989",
          "jx_recover_dst_file_in_fs failed: ret -3999989."}},
        {"both checksum files empty",
         "app_cfg",
         {"main", "", kAbsent, ""},
         0,
         0,
         {"main", record("main"), "main", record("main")},
         {"dst & bak crc all empty."}},
        {"both checksum files empty, no main copy",
         "app_cfg",
         {kAbsent, "", "back", ""},
         0,
         JX_ERR_PARAM2,
         {kAbsent, record(""), "back", ""},
         {"dst & bak crc all empty.", "jx_recover_directly(main->bak) failed: -3999999",
          "jx_recover_dst_file_in_fs failed: ret -3999999."}},
    };
    for (const Row &row : rows) {
        jx::test::reset_sandbox();
        const jx::RegItem item = save_item(row.name);
        lay_out(item, row.before);
        jx::test::LogCapture log;
        jx::test::IoFaults faults;
        if (row.fail_fopen != 0) {
            faults.fail(Call::kFopen, row.fail_fopen, EACCES);
        }
        EXPECT_EQ(jx::jx_recover_dst_file(&item), row.result) << row.what;
        EXPECT_EQ(observe(item), row.after) << row.what;
        EXPECT_EQ(log.messages(), row.log) << row.what;
        if (row.before == row.after && row.fail_fopen == 0) {
            EXPECT_EQ(faults.count(Call::kFopen), 0) << row.what << ": nothing may be rewritten";
        }
    }
}

// Runs a main-to-backup repair in a child that dies just before its kth fsync,
// as a power cut would; returns the child's exit status.
int repair_cut_before_fsync(const jx::RegItem &item, int k) {
    const pid_t child = fork();
    if (child == 0) {
        jx::test::IoFaults faults;
        faults.crash_before(Call::kFsync, k);
        _exit(jx::jx_recover_by_crc(item.dst, item.crc, item.bak, item.bakcrc) == 0 ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST_F(RecoveryEngineTest, RepairCutByAPowerLossIsCompletedByTheNextRun) {
    const jx::RegItem item = save_item("app_cfg");
    const std::string a = "the main content";
    int status = jx::test::kCrashExitStatus;
    for (int k = 1; status == jx::test::kCrashExitStatus; ++k) {
        ASSERT_LT(k, 10);
        jx::test::reset_sandbox();
        lay_out(item, {a, record(a), "old backup torn", record("old backup")});
        status = repair_cut_before_fsync(item, k);
        EXPECT_EQ(jx::jx_recover_by_crc(item.dst, item.crc, item.bak, item.bakcrc), 0)
            << "fsync " << k;
        EXPECT_EQ(is_file_valid(item.dst, item.crc), 1) << "fsync " << k;
        EXPECT_EQ(is_file_valid(item.bak, item.bakcrc), 1) << "fsync " << k;
        EXPECT_EQ(read_file(item.dst), a) << "fsync " << k;
        EXPECT_EQ(read_file(item.bak), a) << "fsync " << k;
    }
    EXPECT_EQ(status, 0);
}

const char *const kCompanions[] = {"", ".sha256", ".bak", ".bak.sha256"};

class PramRecoveryTest : public RecoveryEngineTest {
protected:
    // Registers app_a and app_ab (whose path begins with app_a's) as R items.
    void SetUp() override {
        RecoveryEngineTest::SetUp();
        JxItemCfg cfg{};
        cfg.protect_mode = JX_PROTECT_R;
        for (const char *name : {"a", "ab"}) {
            cfg.short_name = name;
            jx::test::register_for_test("app", cfg);
        }
        item_.reset(jx::get_reg_inter_info(kSrc));
        ASSERT_NE(item_, nullptr);
    }

    static void corrupt_both() {
        const std::string src = kSrc;
        write_file(src, "main");
        write_file(src + ".sha256", record("x"));
        write_file(src + ".bak", "back");
        write_file(src + ".bak.sha256", record("y"));
    }

    static constexpr char kSrc[] = "/opt/ulx/pram/app_a";
    jx::GPtr<jx::RegItem> item_;
};

TEST_F(PramRecoveryTest, BothCopiesCorruptRemovesExactlyTheFileAndItsCompanions) {
    corrupt_both();
    std::vector<std::string> survivors = {"/opt/ulx/pram/app_a.conf"};
    for (const char *suffix : kCompanions) {
        survivors.push_back(std::string("/opt/ulx/pram/app_ab") + suffix);
        write_file(survivors.back(), "keep");
    }
    write_file(survivors.front(), "keep");
    jx::test::LogCapture log;
    EXPECT_EQ(jx::jx_recover_dst_file(item_.get()), JX_ERR_CRC);
    EXPECT_EQ(log.messages(), (Messages{"(app_a.bak)check CRC failed ,(checksumType:2).",
                                        "(app_a)check CRC failed ,(checksumType:2).",
                                        "main & use all invalid(app_a)(checksumType:2).",
                                        "jx_recover_dst_file_in_pram failed: ret -3999984."}));
    for (const char *suffix : kCompanions) {
        EXPECT_FALSE(exists(std::string(kSrc) + suffix)) << suffix;
    }
    for (const std::string &path : survivors) {
        EXPECT_EQ(read_file(path), "keep") << path;
    }
}

TEST_F(PramRecoveryTest, FailedOrImpossibleClearingIsLoggedAndRemovesNothing) {
    corrupt_both();
    jx::test::LogCapture log;
    {
        jx::test::IoFaults faults;
        faults.fail(Call::kRun, 1, 0);
        EXPECT_EQ(jx::jx_recover_dst_file_in_pram(item_.get()), JX_ERR_CRC);
    }
    EXPECT_EQ(log.messages().back(), "clear the broken file(pram) failed!\n");

    // A companion name that does not fit 255 characters stops the removal.
    jx::RegItem item{};
    const std::string src = "/opt/ulx/pram/" + std::string(232, 'x');
    g_strlcpy(item.src, src.c_str(), sizeof item.src);
    g_strlcpy(item.dst, (src + ".bak").c_str(), sizeof item.dst);
    g_strlcpy(item.crc, "/opt/ulx/pram/x.bak.sha256", sizeof item.crc);
    write_file(src, "main");
    write_file(src + ".sha256", record("x"));
    write_file(item.dst, "back");
    write_file(item.crc, record("y"));
    log.clear();
    jx::test::IoFaults faults;
    EXPECT_EQ(jx::jx_recover_dst_file_in_pram(&item), JX_ERR_CRC);
    EXPECT_EQ(faults.count(Call::kRun), 0);
    const std::string last = log.messages().back();
    EXPECT_TRUE(g_str_has_prefix(last.c_str(), "[") &&
                last.find("recover_pram.cpp][") != std::string::npos &&
                g_str_has_suffix(last.c_str(), "]: snprintf_s failed.\n"))
        << last;
    EXPECT_TRUE(exists(src) && exists(item.dst));
}

TEST_F(PramRecoveryTest, NothingToRecoverFromIsSilent) {
    jx::test::LogCapture log;
    EXPECT_EQ(jx::jx_recover_dst_file(item_.get()), JX_ERR_NOT_FOUND);
    write_file(std::string(kSrc) + ".sha256", record("x"));
    EXPECT_EQ(jx::jx_recover_dst_file(item_.get()), JX_ERR_NOT_FOUND);
    EXPECT_TRUE(log.messages().empty());
}

// A C item has only its durable copy: its existence alone decides.
TEST_F(RecoveryEngineTest, CItemOnlyNeedsItsDurableCopy) {
    const jx::RegItem item = save_item("app_c", JX_PROTECT_C);
    jx::test::LogCapture log;
    jx::test::IoFaults faults;
    EXPECT_EQ(jx::jx_recover_dst_file(&item), JX_ERR_NOT_FOUND);
    // A directory cannot be read as a file, so only an existence test accepts it.
    ASSERT_EQ(mkdir(item.dst, 0755), 0);
    EXPECT_EQ(jx::jx_recover_dst_file(&item), 0);
    EXPECT_TRUE(log.messages().empty());
    EXPECT_EQ(faults.count(Call::kFopen), 0);
}

TEST_F(RecoveryEngineTest, FlashItemsAreRepairedByTheDriverAndOtherModesByNothing) {
    const char *flash = "/opt/ulx/pflash/app_p";
    jx::RegItem item{};
    g_strlcpy(item.dst, flash, sizeof item.dst);
    item.protect_mode = JX_PROTECT_P;
    jx::test::LogCapture log;

    write_file(flash, "never written through the driver");
    EXPECT_EQ(jx::jx_recover_dst_file(&item), JX_ERR_NOT_FOUND);
    ASSERT_EQ(jx_set_content(flash, "flash", 5), 0);
    write_file(flash, "torn");
    EXPECT_EQ(jx::jx_recover_dst_file(&item), 0);
    EXPECT_EQ(read_file(flash), "flash");
    EXPECT_TRUE(log.messages().empty());
    {
        jx::test::IoFaults faults;
        faults.fail(Call::kPflashRecover, 1, EIO);
        EXPECT_EQ(jx::jx_recover_dst_file(&item), -EIO);
    }
    EXPECT_EQ(log.messages(), Messages{"jx_recover_dst_file_in_pflash failed: ret -5."});

    log.clear();
    item.protect_mode = JX_PROTECT_F;
    EXPECT_EQ(jx::jx_recover_dst_file(&item), JX_ERR_NOT_FOUND);
    item.protect_mode = JX_PROTECT_INVALID;
    EXPECT_EQ(jx::jx_recover_dst_file(&item), JX_ERR_PROTECT_MODE);
    EXPECT_EQ(log.messages(), Messages{"unsupported protect mode: 6."});
}

}  // namespace
