#include <cstring>

#include "support/support.h"

namespace {

using namespace jx::test;

const std::string kTable = "/opt/ulx/pram/fsync_reg.ini";

// ~p and ~s stand for the working and save-area prefixes of module app, ~v for
// the privilege line of item_cfg.
std::string expand(std::string text) {
    const std::string marks = "psv", by[] = {"/opt/ulx/pram/app_", "/opt/ulx/save/app_",
                                             "privilege=21474838080\n"};
    for (auto at = text.find('~'); at != std::string::npos; at = text.find('~', at))
        text.replace(at, 2, by[marks.find(text[at + 1])]);
    return text;
}

bool listed(const char *short_name) {
    uint32_t size = 0;
    return jx_get_package_size(short_name, &size) == 0;
}

// Each mode's group exactly as printed, numbered over all letters, callback
// lines only when both names are set, the package as a C file of its own.
TEST_F(SandboxTest, RegistrationAppendsOneGroupPerModeInItsFormat) {
    write_file(kTable, "[S1]\nsrc=/x\n[R2]\nsrc=/y\n");
    write_file("/opt/ulx/c", "");  // a chosen path is taken resolved
    auto cfg = std::vector<JxItemCfg>({item_cfg("a", 0), item_cfg("c", 1, 0, "/opt/ulx//c"),
                                       item_cfg("net.conf", 2), item_cfg("s", 3),
                                       item_cfg("fw", 4, 0, "/opt/ulx/pflashx"),
                                       item_cfg("fw2", 4, 0, "/opt/ulx/pflash/chosen"),
                                       item_cfg("/opt/ulx/f.conf", 5), item_cfg("log", 1, 4096)});
    cfg[1].callback_obj = cfg[3].callback_obj = "o";
    cfg[1].callback_method = "m";
    ASSERT_EQ(register_items("app", cfg), 0);
    EXPECT_EQ(
        read_file(kTable),
        expand("[S1]\nsrc=/x\n[R2]\nsrc=/y\n"
               "[R3]\ndst=~pa.bak\nsrc=~pa\nbak=~pa.bak\ncrc=~pa.bak.sha256\n"
               "bakcrc=~pa.bak.sha256\n~v"
               "[C4]\ndst=/opt/ulx/c\nsrc=~pc\n~vcallback_obj=o\ncallback_method=m\n"
               "[E5]\ndst=~snet.conf\nsrc=~pnet.conf\nbak=~snet.conf.bak\n"
               "crc=~snet.conf.sha256\nbakcrc=~snet.conf.bak.sha256\n~v"
               "[S6]\ndst=~ss\nsrc=~ps\nbak=~ss.bak\ncrc=~ss.sha256\nbakcrc=~ss.bak.sha256\n~v"
               "[P7]\ndst=/opt/ulx/pflash/app_fw\nsrc=~pfw\n~v"
               "[P8]\ndst=/opt/ulx/pflash/chosen\nsrc=~pfw2\n~v"
               "[F9]\nsrc=/opt/ulx/f.conf\n~v[C10]\ndst=~slog\nsrc=~plog\n~v"
               "[C11]\ndst=~slog.tar.gz\nsrc=~plog.tar.gz\n~v"));
    EXPECT_TRUE(listed("log.tar.gz") && listed("/opt/ulx/f.conf") && listed("a"));
}

// Another process listed the file (same src, or same dst): nothing is appended,
// but this process lists it and repairs its working copy. An invalid mode
// changes nothing. Lookups match src exactly; the first letter of a group's
// name classifies it and an unknown letter hides the group.
TEST_F(SandboxTest, ListedFilesAndLookup) {
    LogCapture log;
    EXPECT_EQ(jx_recovery_flash_bak("/p/a"), JX_ERR_NOT_REGISTERED);
    EXPECT_EQ(log.messages(), (std::vector<std::string>{"fsync_reg.ini not init.",
                                                        "get_reg_inter_info(a) failed."}));
    const std::string table = expand(
        "[E1]\nsrc=~pnet.conf\n[C2]\ndst=~sx\nsrc=/elsewhere\n[Q3]\nsrc=/q\n"
        "[e4]\nsrc=/e\n[Sx]\nsrc=/s\n[C6]\nsrc=/p/a\n");
    write_file(kTable, table);
    write_file(expand("~snet.conf"), "durable");
    write_file(expand("~snet.conf.bak"), "stale");  // of an earlier E registration
    EXPECT_EQ(register_items("app", {item_cfg("net.conf", 1), item_cfg("x", 1)}), 0);
    EXPECT_EQ(register_items("app", {item_cfg("bad", 6)}), JX_ERR_PROTECT_MODE);
    EXPECT_EQ(read_file(kTable), table);
    EXPECT_EQ(read_file(expand("~pnet.conf")) + std::to_string(exists(expand("~snet.conf.bak"))),
              "durable0");
    EXPECT_TRUE(listed("net.conf") && listed("x") && !listed("bad"));
    for (const char *path : {"/q", "/e", "/p/a/", "/p//a", "/p/A"}) {
        EXPECT_EQ(jx_recovery_flash_bak(path), JX_ERR_NOT_REGISTERED) << path;
        EXPECT_EQ(log.messages().back(),
                  std::string("get_reg_inter_info(") + (std::strrchr(path, '/') + 1) + ") failed.");
    }
    for (const char *path : {"/s", "/p/a"})
        EXPECT_NE(jx_recovery_flash_bak(path), JX_ERR_NOT_REGISTERED) << path;
    // The process's list compares the first 64 characters of a short name; the first entry wins.
    const std::string name(100, 'n'), same = name.substr(0, 64) + "x";
    ASSERT_EQ(register_items("app", {item_cfg(name.c_str(), 1, 7), item_cfg(same.c_str(), 1)}), 0);
    uint32_t size = 0;
    EXPECT_EQ(jx_get_package_size(same.c_str(), &size), 0);
    EXPECT_EQ(size, 7u);
}

}  // namespace
