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

// ~p and ~s stand for the working and save-area prefixes of module app, ~v for
// the privilege line of item_cfg.
std::string expand(std::string text) {
    text = std::regex_replace(text, std::regex("~p"), "/opt/ulx/pram/app_");
    text = std::regex_replace(text, std::regex("~s"), "/opt/ulx/save/app_");
    return std::regex_replace(text, std::regex("~v"), "privilege=21474838080\n");
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
    std::vector<JxItemCfg> cfg;
    for (auto [name, mode, size, path] : {std::tuple{"a", 0, 0, ""},
                                          {"c", 1, 0, ""},
                                          {"net.conf", 2, 0, ""},
                                          {"s", 3, 0, ""},
                                          {"fw", 4, 0, "/opt/ulx/save/x"},
                                          {"fw2", 4, 0, "/opt/ulx/pflash/chosen"},
                                          {"/opt/ulx/f.conf", 5, 0, ""},
                                          {"log", 1, 4096, ""},
                                          {"lnk", 2, 0, "/opt/ulx/link"}}) {
        cfg.push_back(item_cfg(name, mode, size, path));
    }
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
               "[F9]\nsrc=/opt/ulx/f.conf\n~v[C10]\ndst=~slog\nsrc=~plog\n~v"
               "[C11]\ndst=~slog.tar.gz\nsrc=~plog.tar.gz\n~v"
               "[E12]\ndst=/opt/ulx/target\nsrc=~plnk\nbak=~slnk.bak\ncrc=~slnk.sha256\n"
               "bakcrc=~slnk.bak.sha256\n~v"));
    EXPECT_TRUE(listed("log.tar.gz") && listed("/opt/ulx/f.conf") && listed("a"));
}

// Another process listed the file (same src, or same dst): nothing is appended,
// but this process lists it, repairs its working copy and, for C, drops the
// stale companions of an earlier mode. An invalid mode changes nothing.
TEST_F(RegistryTest, AListedFileIsNotAppendedAgain) {
    const std::string table = expand("[E1]\nsrc=~pnet.conf\n[C2]\ndst=~sx\nsrc=/elsewhere\n");
    write_file(kTable, table);
    write_file(expand("~snet.conf"), "durable");
    const char *stale[] = {"~pnet.conf.sha256", "~snet.conf.sha256", "~snet.conf.bak"};
    for (const char *path : stale) {
        write_file(expand(path), "old");
    }
    EXPECT_EQ(register_items("app", {item_cfg("net.conf", 1), item_cfg("x", 1)}), 0);
    EXPECT_EQ(register_items("app", {item_cfg("bad", 6)}), JX_ERR_PROTECT_MODE);
    EXPECT_EQ(read_file(kTable), table);
    EXPECT_EQ(read_file(expand("~pnet.conf")), "durable");
    for (const char *path : stale) {
        EXPECT_FALSE(exists(expand(path))) << path;
    }
    EXPECT_TRUE(listed("net.conf") && listed("x") && !listed("bad"));
}

// The process's list compares the first 64 characters of a short name.
TEST_F(RegistryTest, ShortNamesAgreeingIn64CharactersAreOneFile) {
    const std::string name(100, 'n'), same = name.substr(0, 64) + "x", other = "x" + name.substr(1);
    ASSERT_EQ(register_items("app", {item_cfg(name.c_str(), 1, 7), item_cfg(same.c_str(), 1)}), 0);
    uint32_t size = 0;
    EXPECT_EQ(jx_get_package_size(same.c_str(), &size) + jx_get_package_size(other.c_str(), &size),
              JX_ERR_NOT_REGISTERED);
    EXPECT_EQ(size, 7u);
}

// Lookups match src exactly; the first letter of a group's name classifies it
// and an unknown letter hides the group. Opening needs the process's list.
TEST_F(RegistryTest, LookupAndOpen) {
    LogCapture log;
    EXPECT_EQ(jx_recovery_flash_bak("/p/a"), JX_ERR_NOT_REGISTERED);
    EXPECT_EQ(log.messages(), (std::vector<std::string>{"fsync_reg.ini not init.",
                                                        "get_reg_inter_info(a) failed."}));
    write_file(kTable, "[Q1]\nsrc=/q\n[e2]\nsrc=/e\n[Sx]\nsrc=/s\n[C4]\nsrc=/p/a\n");
    ASSERT_EQ(register_items("app", {item_cfg("n", JX_PROTECT_C)}), 0);
    for (auto [path, base, found] : {std::tuple{"/q", "q", false},
                                     {"/e", "e", false},
                                     {"/s", "s", true},
                                     {"/p/a", "a", true},
                                     {"/p/a/", "", false},
                                     {"/p//a", "a", false},
                                     {"/p/A", "A", false}}) {
        log.clear();
        EXPECT_EQ(jx_recovery_flash_bak(path) == JX_ERR_NOT_REGISTERED, !found) << path;
        EXPECT_EQ(log.contains(std::string("get_reg_inter_info(") + base + ") failed."), !found);
    }
    EXPECT_NE(open_handle("n", "a"), nullptr);
    EXPECT_EQ(open_handle("other", "r"), nullptr);
    EXPECT_EQ(log.messages().back(), "other not register.");
}

}  // namespace
