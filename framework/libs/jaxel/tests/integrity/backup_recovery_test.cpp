#include <string>
#include <unistd.h>

#include <gtest/gtest.h>

#include "integrity/digest.h"
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
using BackupRecoveryTest = jx::test::SandboxTest;

std::string checksum_of(const std::string &content) {
    char digest[jx::kSha256HexSize];
    jx::sha256_hex(content.data(), content.size(), digest);
    return std::string(digest, sizeof digest);
}

std::string register_item(const char *short_name, uint32_t mode) {
    JxItemCfg cfg{};
    cfg.short_name = short_name;
    cfg.protect_mode = mode;
    return jx::test::register_for_test("app", cfg);
}

// A file and its checksum file, taken of `recorded`.
void write_pair(const std::string &path, const std::string &content, const std::string &recorded) {
    write_file(path, content);
    write_file(path + ".sha256", checksum_of(recorded));
}

TEST_F(BackupRecoveryTest, RamCheckUpdateRefreshesExistingFilesOfItsModeOnly) {
    const std::string r_present = register_item("a", JX_PROTECT_R);
    const std::string r_missing = register_item("b", JX_PROTECT_R);
    const std::string c_item = register_item("c", JX_PROTECT_C);
    const std::string e_item = register_item("e", JX_PROTECT_E);
    write_pair(r_present, "alpha", "stale");
    write_file(c_item, "gamma");
    write_file(e_item, "epsilon");
    jx::test::LogCapture log;
    {
        jx::test::IoFaults faults;
        ram_check_update(6);
        EXPECT_EQ(faults.count(Call::kFlock), 0);
        ASSERT_EQ(log.messages().size(), 1u);
        EXPECT_EQ(log.messages()[0].rfind("[ram_check_update]", 0), 0u);
        EXPECT_EQ(log.messages()[0].substr(log.messages()[0].size() - 16), " param mismatch\n");
    }
    log.clear();
    ram_check_update(JX_PROTECT_R);
    EXPECT_EQ(read_file(r_present + ".sha256"), checksum_of("alpha"));
    EXPECT_FALSE(exists(r_missing) || exists(r_missing + ".sha256"));
    EXPECT_TRUE(log.messages().empty());

    ram_check_update(JX_PROTECT_C);
    EXPECT_FALSE(exists(c_item + ".sha256") || exists(e_item + ".sha256"));
    ram_check_update(JX_PROTECT_E);
    EXPECT_EQ(read_file(e_item + ".sha256"), checksum_of("epsilon"));
    EXPECT_FALSE(exists(c_item + ".sha256"));
}

TEST_F(BackupRecoveryTest, SoundBackupEndsTheCheckWithoutLookup) {
    const std::string src = register_item("a", JX_PROTECT_R);
    write_pair(src, "damaged", "main");
    write_pair(src + ".bak", "backup", "backup");
    write_pair("/opt/ulx/pram/app_x.bak", "x", "x");
    jx::test::LogCapture log;
    {
        jx::test::IoFaults faults;
        EXPECT_EQ(jx_check_recovery_rambak(src.c_str()), 0);
        EXPECT_EQ(jx_check_recovery_rambak("/opt/ulx/pram/app_x"), 0);
        EXPECT_EQ(faults.count(Call::kFlock) + faults.count(Call::kFopen), 0);
        EXPECT_TRUE(log.messages().empty());
    }
    unlink("/opt/ulx/pram/app_x.bak");
    EXPECT_EQ(jx_check_recovery_rambak("/opt/ulx/pram/app_x"), JX_ERR_NOT_REGISTERED);
    EXPECT_EQ(jx_recovery_flash_bak("/opt/ulx/pram/app_x"), JX_ERR_NOT_REGISTERED);
    EXPECT_EQ(log.messages(), (std::vector<std::string>{"get_reg_inter_info(app_x) failed.",
                                                        "get_reg_inter_info(app_x) failed."}));
}

TEST_F(BackupRecoveryTest, DamagedBackupIsReconciledWithItsMainFile) {
    const std::string src = register_item("a", JX_PROTECT_R);
    jx::test::LogCapture log;
    write_pair(src, "main", "main");
    write_pair(src + ".bak", "junk", "backup");
    EXPECT_EQ(jx_check_recovery_rambak(src.c_str()), 0);
    EXPECT_EQ(read_file(src + ".bak"), "main");
    EXPECT_EQ(read_file(src + ".bak.sha256"), checksum_of("main"));

    write_pair(src, "damaged", "main");
    write_pair(src + ".bak", "junk", "backup");
    EXPECT_EQ(jx_check_recovery_rambak(src.c_str()), JX_ERR_CRC);
    EXPECT_TRUE(log.contains("jx_recover_dst_file_in_pram failed: ret -3999984."));
    for (const char *suffix : {"", ".sha256", ".bak", ".bak.sha256"}) {
        EXPECT_FALSE(exists(src + suffix)) << suffix;
    }

    // Nothing left to recover from is reported by its code alone.
    log.clear();
    EXPECT_EQ(jx_check_recovery_rambak(src.c_str()), JX_ERR_NOT_FOUND);
    EXPECT_TRUE(log.messages().empty());
}

TEST_F(BackupRecoveryTest, FlashBackupReconcilesMainCopyWithBackup) {
    const std::string c_item = register_item("c", JX_PROTECT_C);
    write_file("/opt/ulx/save/app_c", "durable");
    {
        jx::test::IoFaults faults;
        EXPECT_EQ(jx_recovery_flash_bak(c_item.c_str()), 0);
        EXPECT_EQ(faults.count(Call::kFopen), 0);
    }

    // A main copy without a recorded digest is trusted as it is.
    const std::string e_item = register_item("e", JX_PROTECT_E);
    const std::string dst = "/opt/ulx/save/app_e";
    write_file(dst, "unrecorded");
    write_pair(dst + ".bak", "settings", "settings");
    EXPECT_EQ(jx_recovery_flash_bak(e_item.c_str()), 0);
    EXPECT_EQ(read_file(dst), "unrecorded");

    write_pair(dst, "settings", "settings");
    write_pair(dst + ".bak", "damaged", "settings");
    EXPECT_EQ(jx_recovery_flash_bak(e_item.c_str()), 0);
    EXPECT_EQ(read_file(dst + ".bak"), "settings");
    EXPECT_EQ(read_file(dst + ".bak.sha256"), checksum_of("settings"));
    EXPECT_FALSE(exists(e_item));
}

}  // namespace
