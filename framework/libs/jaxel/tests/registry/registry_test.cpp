#include <regex>
#include <unistd.h>

#include "jaxel.h"
#include "support/builders.h"
#include "support/log_capture.h"
#include "support/sandbox.h"

namespace {

using namespace jx::test;
using RegistryTest = SandboxTest;

const std::string kTable = "/opt/ulx/pram/fsync_reg.ini";

// Short hands for the long literals: ~p, ~s and ~v stand for the working and
// save-area prefixes of module app and for the privilege line of item_cfg.
std::string expand(std::string text) {
    for (auto [from, to] : {std::pair{"~p", "/opt/ulx/pram/app_"},
                            {"~s", "/opt/ulx/save/app_"},
                            {"~v", "privilege=21474838080\n"}}) {
        text = std::regex_replace(text, std::regex(from), to);
    }
    return text;
}

bool listed(const char *short_name) {
    uint32_t size = 0;
    return jx_get_package_size(short_name, &size) == 0;
}

// Each mode's group exactly as printed, numbered over all letters, callback
// lines only when both names are set, the package as a C file of its own.
TEST_F(RegistryTest, RegistrationAppendsOneGroupPerModeInItsFormat) {
    write_file(kTable, "[S1]\nsrc=/x\n[R2]\nsrc=/y\n");
    write_file("/opt/ulx/target", "t");
    ASSERT_EQ(symlink("/opt/ulx/target", "/opt/ulx/link"), 0);
    std::vector<JxItemCfg> cfg = {item_cfg("a", JX_PROTECT_R),
                                  item_cfg("c", JX_PROTECT_C),
                                  item_cfg("net.conf", JX_PROTECT_E),
                                  item_cfg("s", JX_PROTECT_S),
                                  item_cfg("fw", JX_PROTECT_P, 0, "/opt/ulx/save/x"),
                                  item_cfg("fw2", JX_PROTECT_P, 0, "/opt/ulx/pflash/chosen"),
                                  item_cfg("/opt/ulx/f.conf", JX_PROTECT_F),
                                  item_cfg("log", JX_PROTECT_C, 4096),
                                  item_cfg("lnk", JX_PROTECT_E, 0, "/opt/ulx/link")};
    cfg[1].callback_obj = cfg[3].callback_obj = "o";
    cfg[1].callback_method = "m";
    ASSERT_EQ(register_items("app", cfg), 0);
    EXPECT_EQ(
        read_file(kTable),
        expand("[S1]\nsrc=/x\n[R2]\nsrc=/y\n"
               "[R3]\ndst=~pa.bak\nsrc=~pa\nbak=~pa.bak\ncrc=~pa.bak.sha256\n"
               "bakcrc=~pa.bak.sha256\n~v"
               "[C4]\ndst=~sc\nsrc=~pc\n~vcallback_obj=o\ncallback_method=m\n"
               "[E5]\ndst=~snet.conf\nsrc=~pnet.conf\nbak=~snet.conf.bak\n"
               "crc=~snet.conf.sha256\nbakcrc=~snet.conf.bak.sha256\n~v"
               "[S6]\ndst=~ss\nsrc=~ps\nbak=~ss.bak\ncrc=~ss.sha256\nbakcrc=~ss.bak.sha256\n~v"
               "[P7]\ndst=/opt/ulx/pflash/app_fw\nsrc=~pfw\n~v"
               "[P8]\ndst=/opt/ulx/pflash/chosen\nsrc=~pfw2\n~v"
               "[F9]\nsrc=/opt/ulx/f.conf\n~v"
               "[C10]\ndst=~slog\nsrc=~plog\n~v"
               "[C11]\ndst=~slog.tar.gz\nsrc=~plog.tar.gz\n~v"
               "[E12]\ndst=/opt/ulx/target\nsrc=~plnk\nbak=~slnk.bak\ncrc=~slnk.sha256\n"
               "bakcrc=~slnk.bak.sha256\n~v"));
    uint32_t size = 0;
    EXPECT_EQ(jx_get_package_size("log", &size), 0);
    EXPECT_EQ(size, 4096u);
    EXPECT_TRUE(listed("log.tar.gz") && listed("/opt/ulx/f.conf") && listed("a"));
}

// Another process listed the file (same src, or same dst): nothing is appended,
// but this process still lists it, repairs its working copy and, for C, drops
// the stale companions of an earlier mode. An invalid mode changes nothing.
TEST_F(RegistryTest, AListedFileIsNotAppendedAgain) {
    const std::string table = expand("[E1]\nsrc=~pnet.conf\n[C2]\ndst=~sx\nsrc=/elsewhere\n");
    write_file(kTable, table);
    write_file(expand("~snet.conf"), "durable");
    for (const char *stale :
         {"~pnet.conf.sha256", "~snet.conf.sha256", "~snet.conf.bak", "~snet.conf.bak.sha256"}) {
        write_file(expand(stale), "old");
    }
    EXPECT_EQ(register_items("app", {item_cfg("net.conf", JX_PROTECT_C), item_cfg("x", 1)}), 0);
    EXPECT_EQ(register_items("app", {item_cfg("bad", JX_PROTECT_INVALID)}), JX_ERR_PROTECT_MODE);
    EXPECT_EQ(read_file(kTable), table);
    EXPECT_EQ(read_file(expand("~pnet.conf")), "durable");
    for (const char *stale : {"~pnet.conf.sha256", "~snet.conf.sha256", "~snet.conf.bak"}) {
        EXPECT_FALSE(exists(expand(stale))) << stale;
    }
    EXPECT_TRUE(listed("net.conf") && listed("x") && !listed("bad"));
}

TEST_F(RegistryTest, AnUnreadableTableAddsNothing) {
    write_file(kTable, "not a key file");
    LogCapture log;
    EXPECT_EQ(register_items("app", {item_cfg("net.conf", JX_PROTECT_C)}), JX_ERR_OPEN);
    auto m = log.messages();
    EXPECT_TRUE(m.at(0).starts_with("g_key_file_load_from_file(fsync_reg.ini) failed: "));
    m[0] = "";
    EXPECT_EQ(m, (std::vector<std::string>{"", "open_key_file(fsync_reg.ini) failed.",
                                           "jx_fsync_register_inter failed: ret -3999989.",
                                           "jx_init_item (app net.conf) failed: ret -3999989."}));
    EXPECT_FALSE(listed("net.conf"));
}

// Lookups by exact src through a public caller; the first letter of the group
// name classifies it and an unknown letter hides the group. Opening needs the
// name in the process's list.
TEST_F(RegistryTest, LookupFindsExactlyTheRegisteredPath) {
    LogCapture log;
    EXPECT_EQ(jx_recovery_flash_bak("/opt/ulx/pram/app_a"), JX_ERR_NOT_REGISTERED);
    EXPECT_EQ(log.messages(), (std::vector<std::string>{"fsync_reg.ini not init.",
                                                        "get_reg_inter_info(app_a) failed."}));
    write_file(kTable, "[Q1]\nsrc=/q\n[e2]\nsrc=/e\n[Sx]\nsrc=/s\n[C4]\nsrc=/opt/ulx/pram/a\n");
    ASSERT_EQ(register_items("app", {item_cfg("n", JX_PROTECT_C)}), 0);
    for (auto [path, found] : {std::pair{"/q", false},
                               {"/e", false},
                               {"/s", true},
                               {"/opt/ulx/pram/a", true},
                               {"/opt/ulx/pram/a/", false},
                               {"/opt/ulx/pram//a", false},
                               {"/opt/ulx/pram/A", false}}) {
        log.clear();
        EXPECT_EQ(jx_recovery_flash_bak(path) == JX_ERR_NOT_REGISTERED, !found) << path;
        const std::string base = std::string(path).substr(std::string(path).rfind('/') + 1);
        EXPECT_EQ(log.contains("get_reg_inter_info(" + base + ") failed."), !found) << path;
    }
    EXPECT_NE(open_handle("n", "a"), nullptr);
    EXPECT_EQ(open_handle("other", "r"), nullptr);
    EXPECT_EQ(log.messages().back(), "other not register.");
}

}  // namespace
