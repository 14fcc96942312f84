#include <cstdlib>
#include <string>
#include <sys/stat.h>
#include <vector>

#include <gtest/gtest.h>

#include "frame/locations.h"
#include "integrity/digest.h"
#include "jaxel.h"
#include "startup/startup.h"
#include "support/io_faults.h"
#include "support/log_capture.h"
#include "support/sandbox.h"

namespace {

using jx::test::Call;
using jx::test::exists;
using jx::test::read_file;
using jx::test::write_file;

const std::string kStash = "/opt/ulx/pram/.JxCfg";
const std::string kWork = "/opt/ulx/point";
const std::string kStashedTable =
    "[S1]\nsrc=/opt/ulx/pram/app_a\ndst=/opt/ulx/save/app_a\nbak=/opt/ulx/save/app_a.bak\n"
    "crc=/opt/ulx/save/app_a.sha256\n"
    "[E2]\nsrc=/opt/ulx/pram/app_e\ncrc=/opt/ulx/save/app_e.sha256\n";

std::string digest_of(const std::string &text) {
    char hex[jx::kSha256HexSize];
    jx::sha256_hex(text.data(), text.size(), hex);
    return std::string(hex, jx::kSha256HexSize);
}

class FactoryPointTest : public jx::test::SandboxTest {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        mkdir(kWork.c_str(), 0755);
        for (const char *live : {"/opt/ulx/pram/app_a", "/opt/ulx/save/app_a",
                                 "/opt/ulx/save/app_a.bak", "/opt/ulx/pram/app_e"}) {
            write_file(live, "live");
        }
    }

    // The recovery point archive with the given members at its top level.
    static void make_point(const std::vector<std::pair<std::string, std::string>> &members) {
        std::string names;
        for (const auto &[name, content] : members) {
            write_file(kWork + "/" + name, content);
            names += " " + name;
        }
        const std::string command =
            "tar -czf " + std::string(jx::kRecoverPointPath) + " -C " + kWork + names;
        ASSERT_EQ(std::system(command.c_str()), 0);
    }
};

TEST_F(FactoryPointTest, VerifiedRestoreRebuildsTheThreeCopiesOfSEntriesOnly) {
    make_point({{"packet_date", "2026"},
                {"fsync_reg.ini", kStashedTable},
                {"app_a", "factory"},
                {"app_a.sha256", digest_of("factory")},
                {"app_e", "factory e"},
                {"app_e.sha256", digest_of("factory e")}});
    jx::jx_recover_factory_S_cfg();
    for (const char *live :
         {"/opt/ulx/pram/app_a", "/opt/ulx/save/app_a", "/opt/ulx/save/app_a.bak"}) {
        EXPECT_EQ(read_file(live), "factory") << live;
        EXPECT_EQ(read_file(std::string(live) + ".sha256"), digest_of("factory")) << live;
    }
    EXPECT_EQ(read_file("/opt/ulx/pram/app_e"), "live");
    EXPECT_FALSE(exists(kStash));
}

TEST_F(FactoryPointTest, ACopyThatFailsItsCheckOrHasNoneStaysOut) {
    make_point({{"packet_date", "2026"},
                {"fsync_reg.ini", kStashedTable},
                {"app_a", "factory"},
                {"app_a.sha256", digest_of("other")}});
    jx::test::LogCapture log;
    jx::jx_recover_factory_S_cfg();
    EXPECT_EQ(read_file("/opt/ulx/pram/app_a"), "live");
    ASSERT_FALSE(log.messages().empty());
    EXPECT_NE(log.messages().back().find("[jx_recover_cfg_with_check]"), std::string::npos);
    EXPECT_NE(log.messages().back().find(" /opt/ulx/pram/.JxCfg/app_a check crc failed\n"),
              std::string::npos);

    ASSERT_EQ(unlink(jx::kRecoverPointPath), 0);
    ASSERT_EQ(unlink((kWork + "/app_a.sha256").c_str()), 0);
    make_point({{"packet_date", "2026"}, {"fsync_reg.ini", kStashedTable}, {"app_a", "factory"}});
    log.clear();
    jx::jx_recover_factory_S_cfg();
    EXPECT_EQ(read_file("/opt/ulx/pram/app_a"), "live");
    EXPECT_TRUE(log.messages().empty());
    EXPECT_FALSE(exists(kStash));
}

TEST_F(FactoryPointTest, PlainRestoreStopsAtTheFirstMissingPreservedFile) {
    make_point({{"User_Roster", "roster"}, {"keep_def_config.ini", "def"}});
    jx::test::LogCapture log;
    jx::jx_recover_factory_S_cfg();
    EXPECT_EQ(read_file("/opt/ulx/pram/User_Roster"), "roster");
    EXPECT_EQ(read_file("/opt/ulx/pram/User_Roster.sha256"), digest_of("roster"));
    EXPECT_FALSE(exists("/opt/ulx/pram/keep_def_config.ini"));
    ASSERT_GE(log.messages().size(), 2u);
    EXPECT_EQ(log.messages()
                  .at(log.messages().size() - 2)
                  .rfind("recover file: system cmd fail! ret = ", 0),
              0u);
    EXPECT_EQ(log.messages().back(),
              "jx_recover_factory_S_cfg without check fail! ret -3999976 \n");
    EXPECT_FALSE(exists(kStash));
}

TEST_F(FactoryPointTest, NoPointALeftoverStashOrAFailedUnpack) {
    jx::test::IoFaults faults;
    jx::jx_recover_factory_S_cfg();
    EXPECT_EQ(faults.count(Call::kRun), 0);

    make_point({{"User_Roster", "roster"}});
    ASSERT_EQ(mkdir(kStash.c_str(), 0755), 0);
    jx::test::LogCapture log;
    jx::jx_recover_factory_S_cfg();
    EXPECT_EQ(log.messages().back(), "create .JxCfg fail!\n");
    EXPECT_TRUE(exists(kStash));
    EXPECT_FALSE(exists("/opt/ulx/pram/User_Roster"));

    ASSERT_EQ(rmdir(kStash.c_str()), 0);
    faults.fail(Call::kRun, 2, EIO);  // the unpack
    jx::jx_recover_factory_S_cfg();
    EXPECT_EQ(log.messages().back(), "copy file to path failed. 5 (Input/output error)\n");
    EXPECT_FALSE(exists("/opt/ulx/pram/User_Roster"));
    EXPECT_FALSE(exists(kStash));
}

TEST_F(FactoryPointTest, StartUpRestoresOnRequestAndWithdrawsTheRequest) {
    make_point({{"User_Roster", "roster"}});
    ASSERT_EQ(jx_factory_load_req(1), 0);
    EXPECT_EQ(read_file(jx::kLoadCfgFlagPath), std::string("Factory\0", 8));
    JxItemCfg cfg{};
    cfg.short_name = "a";
    cfg.protect_mode = JX_PROTECT_C;
    ASSERT_EQ(jx_init_cfg(&cfg, 1, "app"), 0);
    EXPECT_EQ(read_file("/opt/ulx/pram/User_Roster"), "roster");
    EXPECT_EQ(read_file(jx::kLoadCfgFlagPath), std::string("Cleared\0", 8));
}

}  // namespace
