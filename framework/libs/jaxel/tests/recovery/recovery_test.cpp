#include <algorithm>
#include <cerrno>

#include "recovery/recovery.h"
#include "support/support.h"

namespace {

using namespace jx::test;
using Lines = std::vector<std::string>;

// The acts; the first two open the file, kOrphan after it has left the table.
enum Act { kOpen, kOrphan, kRegister, kRambak, kFlashBak, kUpdate };

// The files of item "x" of module "md", one letter each: working copy, its side
// file, durable copy, its checksum file, backup, its checksum file. For R the
// durable pair is the working copy's own ".bak" pair; for P it is the flash file.
// Letters: - absent; a, b, x, E the contents "alpha", "bravo", "x", ""; A, B, X,
// Z their side files; n alpha's digest and a newline; t a flash file torn (to
// "x") after the driver recorded alpha.
struct Row {
    uint32_t mode;
    Act act;
    const char *name, *before, *after;
    int32_t result;            // the engine's code for an open; the mode given to ram_check_update
    const char *log;           // one letter a line, see lines_of
    Call fail = Call::kCount;  // its first call fails with EIO
};

std::string text_of(char letter) {
    const std::string plain[] = {"alpha", "bravo", "x", ""};
    const size_t at = std::string("abxEABXZ").find(letter == 't' ? 'x' : letter);
    return letter == 'n' ? sha256_hex("alpha") + "\n"
           : at < 4      ? plain[at]
                         : side_file_text(plain[at % 4]);
}

std::vector<std::string> paths_of(uint32_t mode, const char *name) {
    const std::string w = tier_path("md", name);
    const std::string d = mode == JX_PROTECT_R   ? w + ".bak"
                          : mode == JX_PROTECT_P ? tier_path("md", name, JX_TIER_PFLASH)
                                                 : tier_path("md", name, JX_TIER_SAVE);
    std::vector<std::string> all = {w,          w + ".sha256",    d, d + ".sha256",
                                    d + ".bak", d + ".bak.sha256"};
    all.resize(mode == JX_PROTECT_R ? 4 : mode == JX_PROTECT_P ? 3 : 6);
    return all;
}

void lay(const std::vector<std::string> &paths, const char *letters) {
    for (size_t i = 0; i < paths.size(); ++i) {
        ASSERT_TRUE(letters[i] != 't' || jx_set_content(paths[i].c_str(), "alpha", 5) == 0);
        letters[i] != '-' ? write_file(paths[i], text_of(letters[i])) : void();
    }
}

std::string letters_of(const std::vector<std::string> &paths) {
    std::string letters, known = "abxEABXZn";
    for (const std::string &path : paths) {
        const auto it =
            std::ranges::find_if(known, [&](char k) { return read_file(path) == text_of(k); });
        letters += !exists(path) ? '-' : it == known.end() ? '?' : *it;
    }
    return letters;
}

// The exact log lines of a row, one letter each, for the row's file and code:
// b, m the backup's or the main copy's check failed; i both invalid; a the
// md_so_ rule; K, M a copy over the backup or the main pair; e both checksum
// files empty; d a failed main-to-backup copy; s, p, f the save-area, RAM or
// flash branch failed; c clearing failed; o, O an open's lines; r, R, I a
// registration's lines; u not in the table.
Lines lines_of(const Row &row) {
    const std::string n = std::string("md_") + row.name, code = std::to_string(row.result);
    const std::string texts[] = {
        "(" + n + ".bak)check CRC failed ,(checksumType:2).",
        "(" + n + ")check CRC failed ,(checksumType:2).",
        "main & use all invalid(" + n + ")(checksumType:2).",
        "AC lost, CRC error.use main recover bak(" + n + ".bak)(checksumType:2).",
        "recover file(" + n + ".bak) successfully.(checksumType:2).",
        "recover file(" + n + ") successfully.(checksumType:2).",
        "dst & bak crc all empty.",
        "jx_recover_directly(main->bak) failed: " + code,
        "jx_recover_dst_file_in_fs failed: ret " + code + ".",
        "jx_recover_dst_file_in_pram failed: ret " + code + ".",
        "clear the broken file(pram) failed!\n",
        "jx_recover_dst_file_in_pflash failed: ret " + code + ".",
        "jx_recover_dst_file(" + n + ") failed: ret " + code + ".",
        "jx_file_recover_by_name(" + n + ") failed: " + code + ".",
        "jx_recover_dst_file failed: ret " + code + ".",
        "jx_file_recover(x) failed: ret " + code + ".",
        "jx_init_item (md x) failed: ret " + code + ".",
        "(" + n + ") not found in fsync_reg.ini."};
    Lines lines;
    for (const char *letter = row.log; *letter != '\0'; ++letter)
        lines.push_back(texts[std::string("bmiaKMedspcfoOrRIu").find(*letter)]);
    return lines;
}

const Row kRows[] = {
    // The save-area decision table, reached by opening a damaged working copy.
    {JX_PROTECT_E, kOpen, "x", "xAaAaA", "aAaAaA", 0, ""},
    {JX_PROTECT_E, kOpen, "x", "xAaAxB", "aAaAaA", 0, "K"},
    {JX_PROTECT_S, kOpen, "x", "xAxAaA", "aAaAaA", 0, "bM"},
    {JX_PROTECT_E, kOpen, "so_x", "xAaBbA", "aAaAaA", 0, "bma"},
    // md_sox is outside the md_so_ rule; identical copies still need the right digest.
    {JX_PROTECT_E, kOpen, "sox", "xAaBbA", "xAaBbA", JX_ERR_CRC, "bmisoO"},
    {JX_PROTECT_E, kOpen, "x", "xAaBaB", "xAaBaB", JX_ERR_CRC, "bmisoO"},
    {JX_PROTECT_E, kOpen, "x", "xAanan", "aAanaA", 0, "K"},  // agreement is exact, a match a prefix
    // A main copy without a checksum file is trusted; a broken one whose backup has
    // none stays; a single copy is taken unverified; empty checksum files on both
    // sides mean no digest yet.
    {JX_PROTECT_E, kOpen, "x", "xAa-bB", "aAa-bB", 0, ""},
    {JX_PROTECT_E, kOpen, "x", "bAxAa-", "xXxAa-", 0, "b"},
    {JX_PROTECT_E, kOpen, "x", "xA--bA", "bBbBbB", 0, ""},
    {JX_PROTECT_E, kOpen, "x", "xAaB--", "aAaAaA", 0, ""},
    {JX_PROTECT_E, kOpen, "x", "xAaE-E", "aAaAaA", 0, "e"},
    // One empty checksum file fails its copy like any other.
    {JX_PROTECT_E, kOpen, "x", "xAaEaA", "aAaAaA", 0, "bM"},
    // A pair write without its content changes none of its files.
    {JX_PROTECT_E, kOpen, "x", "xA-EbE", "xA-EbE", JX_ERR_PARAM2, "edsoO"},
    {JX_PROTECT_E, kOpen, "x", "xA----", "xA----", JX_ERR_NOT_FOUND, "oO"},
    {JX_PROTECT_E, kOrphan, "x", "xA----", "xA----", -3999991, "uO"},  // cannot be repaired
    // Registration: nothing to recover from is no failure, a valid working copy stays.
    {JX_PROTECT_E, kRegister, "x", "--aAaA", "aAaAaA", 0, ""},
    {JX_PROTECT_E, kRegister, "x", "------", "------", 0, ""},
    {JX_PROTECT_E, kRegister, "x", "bBaAaA", "bBaAaA", 0, ""},
    {JX_PROTECT_E, kRegister, "x", "--aBbA", "--aBbA", JX_ERR_CRC, "bmisrRI"},
    {JX_PROTECT_E, kFlashBak, "x", "xAaAxB", "xAaAaA", 0, "K"},
    // C: the durable copy only has to exist; its working copy gets no side file.
    {JX_PROTECT_C, kOpen, "x", "xAb---", "bAb---", 0, ""},
    {JX_PROTECT_C, kOpen, "x", "xA----", "xA----", JX_ERR_NOT_FOUND, "oO"},
    {JX_PROTECT_C, kRegister, "x", "--b---", "b-b---", 0, ""},
    {JX_PROTECT_C, kFlashBak, "x", "--b---", "--b---", 0, ""},
    // R: the working copy is the main copy; both copies broken removes all four.
    {JX_PROTECT_R, kOpen, "x", "xAaA", "aAaA", 0, "bM"},
    {JX_PROTECT_R, kOpen, "x", "xAbA", "----", JX_ERR_CRC, "bmipoO"},
    {JX_PROTECT_R, kOpen, "x", "xAbA", "xAbA", JX_ERR_CRC, "bmicpoO", Call::kRun},
    {JX_PROTECT_R, kRegister, "x", "--aA", "aAaA", 0, ""},
    // A sound ".bak" pair ends the backup check, whatever the main file holds.
    {JX_PROTECT_R, kRambak, "x", "xAaA", "xAaA", 0, ""},
    {JX_PROTECT_R, kRambak, "x", "aAxB", "aAaA", 0, "K"},
    {JX_PROTECT_R, kRambak, "x", "-A--", "-A--", JX_ERR_NOT_FOUND, ""},
    {JX_PROTECT_E, kRambak, "x", "aAxB--", "aAaA--", 0, "M"},
    // P: the flash driver repairs its file from its own records.
    {JX_PROTECT_P, kOpen, "x", "xAt", "aAa", 0, ""},
    {JX_PROTECT_P, kOpen, "x", "xAx", "xAx", JX_ERR_NOT_FOUND, "oO"},
    {JX_PROTECT_P, kOpen, "x", "xAa", "xAa", -EIO, "foO", Call::kPflashRecover},
    {JX_PROTECT_P, kRegister, "x", "--t", "aAa", 0, ""},
    // Side files are refreshed for existing working copies of the given letter only.
    {JX_PROTECT_R, kUpdate, "x", "aBaB", "aAaB", JX_PROTECT_R, ""},
    {JX_PROTECT_R, kUpdate, "x", "----", "----", JX_PROTECT_R, ""},
    {JX_PROTECT_C, kUpdate, "x", "aB----", "aB----", JX_PROTECT_C, ""},
    {JX_PROTECT_E, kUpdate, "x", "aB----", "aB----", JX_PROTECT_S, ""},
};

class RecoveryTest : public SandboxTest, public ::testing::WithParamInterface<Row> {};

TEST_P(RecoveryTest, Decision) {
    const Row &row = GetParam();
    // Item "xy" is there to show that nothing removes a file whose name merely extends x's.
    const std::vector items = {item_cfg(row.name, row.mode), item_cfg("xy", row.mode)};
    if (row.act != kRegister) {
        ASSERT_EQ(register_items("md", items), 0);
    }
    const std::vector<std::string> paths = paths_of(row.mode, row.name);
    lay(paths, row.before);
    write_file(tier_path("md", "xy"), "alpha");
    row.act == kOrphan ? write_file("/opt/ulx/pram/fsync_reg.ini", "") : void();
    LogCapture log;
    IoFaults faults;
    row.fail != Call::kCount ? faults.fail(row.fail, 1, EIO) : void();
    int32_t result = row.result;
    switch (row.act) {
    case kRegister: result = register_items("md", items); break;
    case kOpen:
    case kOrphan: result = open_handle(row.name, "r") ? 0 : -1; break;
    case kRambak: result = jx_check_recovery_rambak(paths[0].c_str()); break;
    case kFlashBak: result = jx_recovery_flash_bak(paths[0].c_str()); break;
    case kUpdate: ram_check_update(row.result); break;
    }
    EXPECT_EQ(result, row.act <= kOrphan && row.result != 0 ? -1 : row.result);
    EXPECT_EQ(log.messages(), lines_of(row));
    EXPECT_EQ(letters_of(paths), row.after);
    EXPECT_EQ(read_file(tier_path("md", "xy")), "alpha");
    // A registration gives the working copy the registered privilege, and its
    // owner, group and mode to every other file of the item (side file 0600).
    for (size_t i = 0; row.act == kRegister && exists(paths[0]) && i < paths.size(); ++i) {
        const struct stat st = stat_of(paths[i]);
        EXPECT_TRUE(!exists(paths[i]) ||
                    ((st.st_mode & 07777) == (i == 1 ? 0600u : 0640u) && st.st_gid == kTestGroup))
            << paths[i];
    }
}

INSTANTIATE_TEST_SUITE_P(Rows, RecoveryTest, ::testing::ValuesIn(kRows));

using RecoverySandbox = SandboxTest;

// A repair cut at any durable step is finished by the next start-up, because
// the checksum file of the trusted copy is written before the copies it guards.
TEST_F(RecoverySandbox, CutRepairIsCompletedByTheNextStartUpAndBadModesAreRefused) {
    const std::vector<std::string> paths = paths_of(JX_PROTECT_E, "x");
    const auto start = [] { return register_items("md", {item_cfg("x", JX_PROTECT_E)}); };
    // A main copy without a recorded digest is trusted, so a cut backup-to-main
    // repair may leave it so; no checksum file may ever disagree with its copy.
    for (const auto &[before, also] :
         {std::pair{"--a---", "aAaA"}, {"----aB", "a-aA"}, {"--aAxB", "aAaA"}}) {
        int status = kCrashExitStatus;
        for (int nth = 1; status == kCrashExitStatus && nth < 60; ++nth) {
            reset_sandbox();
            lay(paths, before);
            status = in_child([&] {
                IoFaults faults;
                faults.crash_before(Call::kFsync, nth);
                return start();
            });
            ASSERT_EQ(in_child(start), 0);
            // A working copy cut before its side file is written counts as valid, and is.
            const std::string now = letters_of(paths), durable = now.substr(2);
            EXPECT_TRUE((now.starts_with("aA") || now.starts_with("a-")) &&
                        (durable == "aAaA" || durable == also))
                << before << " fsync " << nth << ": " << now;
        }
        EXPECT_EQ(status, 0) << before;
    }
    // No exported call hands recovery a mode past F; it is refused all the same.
    LogCapture log;
    jx::RegItem past_f{};
    past_f.protect_mode = JX_PROTECT_F + 1;
    EXPECT_EQ(jx::jx_recover_dst_file(&past_f), JX_ERR_PROTECT_MODE);
    EXPECT_EQ(log.messages(), Lines{"unsupported protect mode: 6."});
}

}  // namespace
