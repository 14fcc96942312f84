#include <cerrno>
#include <unistd.h>

#include "support/support.h"

namespace {

using namespace jx::test;
const std::string kPram = "/opt/ulx/pram/", kSave = "/opt/ulx/save/";

// A file of user 1000 with the given group and mode.
int own(const std::string &path, gid_t group, mode_t mode) {
    write_file(path, "x");
    return chown(path.c_str(), 1000, group) | chmod(path.c_str(), mode);
}

// A package ends read-only even when nothing else differs; the suffix test is case-sensitive.
TEST_F(SandboxTest, PrivilegesAreAppliedAndCopiedWholeAndSealPackages) {
    const std::string ref = kPram + "ref", caps = kPram + "t.TAR.GZ", package = kPram + "t.tar.gz";
    ASSERT_EQ(own(ref, 1001, 02644) | own(package, 1001, 02644) | own(caps, 0, 0600), 0);
    // Mode codes are octal digits written in hex; the owner digit is ignored.
    const std::pair<uint32_t, uint32_t> codes[] = {{68, 0644},    {0x640, 0640},      {0, 0600},
                                                   {0x777, 0666}, {UINT32_MAX, 0666}, {420, 0624}};
    for (const auto &[code, mode] : codes)
        EXPECT_EQ(jx_create_privilege(code), mode) << std::hex << code;
    jx_set_privilege(caps.c_str(), privilege_of(0x644, 103));
    EXPECT_EQ(access_of(caps), "644 1000:103");
    LogCapture log;
    IoFaults faults;
    faults.fail(Call::kFchmod, 1, EPERM);  // the raw result of the failing call comes back
    EXPECT_EQ(jx_sync_privilege(ref.c_str(), caps.c_str()), -1);
    EXPECT_TRUE(log.contains("chmod(t.TAR.GZ) failed: ret -1 errno 1(Operation not permitted)"));
    EXPECT_EQ(access_of(caps), "644 1000:1001");
    for (const std::string &target : {caps, package}) {
        EXPECT_EQ(jx_sync_privilege(ref.c_str(), target.c_str()), 0);
        EXPECT_EQ(access_of(target), target == package ? "440 1000:1001" : "2644 1000:1001");
    }
}

// Short names match on their first 64 characters; the path comes from the arguments.
const std::string kL(63, 'l'), kLong = kL + "ab", kLongToo = kL + "ac", kOther = kL + "bb";

TEST_F(SandboxTest, ClearsEmptyRefreshTheSideFileAndDropPackages) {
    EXPECT_EQ(jx_clear_module_file("r", "app"), JX_ERR_STATE);  // before any start-up
    const std::vector items = {item_cfg("r", JX_PROTECT_R, 10), item_cfg("p", JX_PROTECT_P),
                               item_cfg("c", JX_PROTECT_C, 10),
                               item_cfg(kLong.c_str(), JX_PROTECT_C)};
    ASSERT_EQ(register_items("app", items), 0);
    // Effects: e emptied, s side file refreshed, P and p the two packages removed.
    const std::tuple<const char *, const char *, int32_t, std::string, std::string> rows[] = {
        {"r", "app", 0, "esPp", ""},
        {"p", "app", 0, "es", ""},
        {"c", "app", 0, "ePp", ""},
        {kLongToo.c_str(), "app", 0, "e", ""},
        {kOther.c_str(), "app", JX_ERR_NOT_REGISTERED, "", kOther + " not register."},
        {"r", "other", JX_ERR_OPEN, "", "g_fopen other_r failed: 2(No such file or directory)."},
    };
    for (const auto &[name, module, rc, effects, line] : rows) {
        const std::string path = tier_path("app", name), package = path.substr(14) + ".tar.gz";
        for (const std::string &file : {path, path + ".sha256", kPram + package, kSave + package})
            write_file(file, "old");
        LogCapture log;
        EXPECT_EQ(jx_clear_module_file(name, module), rc) << name;
        EXPECT_EQ(std::string(read_file(path).empty() ? "e" : "") +
                      (read_file(path + ".sha256") == side_file_text("") ? "s" : "") +
                      (exists(kPram + package) ? "" : "P") + (exists(kSave + package) ? "" : "p"),
                  effects)
            << name;
        EXPECT_TRUE(line.empty() ? log.messages().empty() : log.contains(line)) << name;
    }
    jx_set_module_name("");  // the short-name clear takes the module name as it is
    EXPECT_EQ(jx_clear_file("c"), JX_ERR_OPEN);
    EXPECT_FALSE(exists(kPram + "other_r") || exists(kPram + "_c"));
    // A log file is emptied without a side file; only a sized one loses its package.
    JxItemCfg cfg = item_cfg("app.log", JX_PROTECT_C, 0, "/opt/ulx/save/app.log");
    cfg.package_path = "/opt/ulx/save/app.log.tar.gz";
    for (const int32_t size : {0, 10}) {
        write_file(cfg.path, "lines");
        write_file(cfg.package_path, "package");
        cfg.package_size = size;
        EXPECT_EQ(jx_clear_log_file(&cfg), 0);
        EXPECT_EQ(read_file(cfg.path) + std::to_string(exists(cfg.package_path)), size ? "0" : "1");
    }
    EXPECT_FALSE(exists(std::string(cfg.path) + ".sha256"));
}

// A result of kDigits means that neither the file nor its side file changed; the line follows
// the file's base name.
const std::string kDigits = "0123456789", kNul("a\0b", 3), kPut = kDigits + "Y";
const std::tuple<int32_t (*)(JxFile *), int32_t, std::string, std::string> kEdits[] = {
    {[](JxFile *f) { return jx_insert("--", 2, 4, f); }, 0, "0123--456789", ""},
    {[](JxFile *f) { return jx_insert(">", 1, 10, f); }, 0, "0123456789>", ""},
    {[](JxFile *f) { return jx_insert(kNul.data(), 3, 11, f); }, 0, kDigits + kNul, ""},
    {[](JxFile *f) { return jx_insert("x", 0, 0, f); }, 0, kDigits, ""},
    {[](JxFile *f) { return jx_insert("x", UINT32_MAX, 0, f); }, JX_ERR_NO_MEMORY, kDigits,
     " new length 4294967305 beyond 4 GiB."},
    {[](JxFile *f) { return jx_delete(3, 2, f); }, 0, "0156789", ""},
    {[](JxFile *f) { return jx_delete(2, 8, f); }, 0, "01234567", ""},
    {[](JxFile *f) { return jx_delete(UINT32_MAX, 8, f); }, 0, "01234567", ""},
    {[](JxFile *f) { return jx_delete(1, 10, f); }, 0, kDigits, ""},
    {[](JxFile *f) { return jx_modify("12345", 5, 1, 2, f); }, 0, "0123453456789", ""},
    {[](JxFile *f) { return jx_modify("END", 3, 8, UINT32_MAX, f); }, 0, "01234567END", ""},
    {[](JxFile *f) { return jx_modify("x", 1, 10, 1, f); }, JX_ERR_PARAM3, kDigits, ""},
    {[](JxFile *f) { return jx_fputc(0x100 + 'Y', f); }, 0, kPut, ""},
};

// Edits rewrite the side file whatever the protect mode; a character refreshes it for R only.
TEST_F(SandboxTest, EditsRebuildTheWholeContentAndItsSideFile) {
    ASSERT_EQ(register_items("app", {item_cfg("r", JX_PROTECT_R), item_cfg("c", JX_PROTECT_C)}), 0);
    for (const std::string name : {"r", "c"}) {
        Handle handle = open_handle(name.c_str(), "a+");
        const std::string path = tier_path("app", name.c_str());
        for (const auto &[edit, rc, result, line] : kEdits) {
            write_file(path, kDigits);
            write_file(path + ".sha256", "stale");
            LogCapture log;
            EXPECT_EQ(edit(handle.get()), rc) << name << " to " << result;
            EXPECT_EQ(read_file(path), result) << name;
            const bool kept = result == kDigits || (result == kPut && name == "c");
            EXPECT_EQ(read_file(path + ".sha256"), kept ? "stale" : side_file_text(result)) << name;
            EXPECT_TRUE(line.empty() ? log.messages().empty() : log.contains("app_" + name + line));
        }
    }
}

}  // namespace
