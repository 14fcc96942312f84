#include <cerrno>
#include <string>
#include <unistd.h>

#include <gtest/gtest.h>

#include "jaxel.h"
#include "support/builders.h"
#include "support/io_faults.h"
#include "support/log_capture.h"
#include "support/oracle.h"
#include "support/sandbox.h"

namespace {

using namespace jx::test;
using MaintenanceTest = SandboxTest;
constexpr Call kNone = Call::kCount;
const std::string kPram = "/opt/ulx/pram/", kSave = "/opt/ulx/save/";

std::string last_line(const LogCapture &log) {
    const auto lines = log.messages();
    return lines.empty() ? "" : lines.back();
}

bool has(const std::string &flags, char flag) { return flags.find(flag) != std::string::npos; }

// Mode, group and owner of a file, as one comparable text.
std::string access_of(const std::string &path) {
    const struct stat st = stat_of(path);
    return std::to_string(st.st_mode & 07777) + "/" + std::to_string(st.st_gid) + "/" +
           std::to_string(st.st_uid);
}

std::string access_text(mode_t mode, gid_t group, uid_t owner) {
    return std::to_string(mode) + "/" + std::to_string(group) + "/" + std::to_string(owner);
}

// Mode codes are octal digits written in hex; the owner digit is ignored.
TEST(Privilege, OnlyFourCodeBitsAddToOwnerReadWrite) {
    const std::pair<uint32_t, uint32_t> rows[] = {{68, 0644}, {0x640, 0640}, {0x660, 0660},
                                                  {0, 0600},  {0x777, 0666}, {UINT32_MAX, 0666},
                                                  {420, 0624}};
    for (const auto &[code, mode] : rows) {
        EXPECT_EQ(jx_create_privilege(code), mode) << std::hex << code;
    }
}

TEST_F(MaintenanceTest, SetPrivilegeAppliesModeAndGroupToExistingFilesOnly) {
    const std::string path = kPram + "p";
    write_file(path, "x");
    jx_set_privilege(path.c_str(), privilege_of(0x640, 103));
    EXPECT_EQ(access_of(path), access_text(0640, 103, 0));
    jx_set_privilege(path.c_str(), 0);
    EXPECT_EQ(access_of(path), access_text(0600, 0, 0));
    jx_set_privilege((kPram + "missing").c_str(), privilege_of(0x644, 1));
    EXPECT_FALSE(exists(kPram + "missing"));
}

struct SyncRow {
    const char *name;  // only the package starts with the reference's owner, group and mode
    Call fault;        // fails with EPERM
    int32_t rc;
    std::string after;  // mode/group/owner
    const char *line;
};

void fail_once(IoFaults &faults, Call call, int nth, int err) {
    if (call != kNone) {
        faults.fail(call, nth, err);
    }
}

// Packages end read-only even when nothing else differs; the suffix test is case-sensitive.
TEST_F(MaintenanceTest, SyncCopiesOwnerGroupAndFullModeAndSealsPackages) {
    const std::string ref = kPram + "ref", copied = access_text(02644, 1001, 1000);
    const SyncRow rows[] = {
        {"t", kNone, 0, copied, ""},
        {"t.TAR.GZ", kNone, 0, copied, ""},
        {"t.tar.gz", kNone, 0, access_text(0440, 1001, 1000), ""},
        {"t", Call::kChmod, -1, access_text(0600, 1001, 1000),
         "chmod(t) failed: ret -1 errno 1(Operation not permitted)"},
    };
    write_file(ref, "x");
    ASSERT_EQ(chown(ref.c_str(), 1000, 1001) | chmod(ref.c_str(), 02644), 0);
    for (const SyncRow &row : rows) {
        const std::string path = kPram + row.name;
        const bool like_ref = has(row.name, 'z');
        write_file(path, "x");
        ASSERT_EQ(chown(path.c_str(), like_ref ? 1000 : 0, like_ref ? 1001 : 0) |
                      chmod(path.c_str(), like_ref ? 02644 : 0600),
                  0);
        LogCapture log;
        IoFaults faults;
        fail_once(faults, row.fault, 1, EPERM);
        EXPECT_EQ(jx_sync_privilege(ref.c_str(), path.c_str()), row.rc) << row.name;
        EXPECT_EQ(access_of(path), row.after) << row.name;
        EXPECT_EQ(last_line(log), row.line);
    }
    EXPECT_EQ(jx_sync_privilege(ref.c_str(), (kPram + "none").c_str()), 0);
    EXPECT_FALSE(exists(kPram + "none"));
    EXPECT_EQ(jx_sync_privilege(kPram.c_str(), ref.c_str()), JX_ERR_PARAM1);
}

int32_t clear_own(const char *name, const char *module) {
    jx_set_module_name(module);
    return jx_clear_file(name);
}

struct ClearRow {
    int32_t (*clear)(const char *name, const char *module);
    const char *name, *module;
    Call fault;  // fails once with EIO; the second open (the side file's) with EACCES
    int32_t rc;
    const char *effects;  // e: emptied, s: side file refreshed, p: packages removed
    std::string line;     // the last line logged
};

// Short names match on their first 64 characters; the path comes from the arguments.
const std::string kLong = std::string(63, 'l') + "ab", kLongToo = std::string(63, 'l') + "ac",
                  kOther = std::string(62, 'l') + "mab";

TEST_F(MaintenanceTest, ClearEmptiesRefreshesTheSideFileAndDropsPackages) {
    LogCapture log;
    EXPECT_EQ(jx_clear_file("r"), JX_ERR_STATE);
    EXPECT_EQ(last_line(log), "jx_clear_module_file(r) failed: ret -3999995.");
    ASSERT_EQ(chdir(kPram.c_str()), 0);  // an F file's own path is its short name
    ASSERT_EQ(register_items(
                  "app", {item_cfg("r", JX_PROTECT_R, 10), item_cfg("e", JX_PROTECT_E),
                          item_cfg("p", JX_PROTECT_P), item_cfg("c", JX_PROTECT_C, 10),
                          item_cfg("f", JX_PROTECT_F, 10), item_cfg(kLong.c_str(), JX_PROTECT_C)}),
              0);
    const ClearRow rows[] = {
        {jx_clear_module_file, "r", "app", kNone, 0, "esp", ""},
        {jx_clear_module_file, "e", "app", kNone, 0, "es", ""},
        {jx_clear_module_file, "p", "app", kNone, 0, "es", ""},
        {jx_clear_module_file, "c", "app", kNone, 0, "ep", ""},
        {jx_clear_module_file, "f", "app", kNone, JX_ERR_PROTECT_MODE, "e",
         "ram_check app_f failed: -3999993."},
        {jx_clear_module_file, kLongToo.c_str(), "app", kNone, 0, "e", ""},
        {jx_clear_module_file, kOther.c_str(), "app", kNone, JX_ERR_NOT_REGISTERED, "",
         kOther + " not register."},
        {jx_clear_module_file, "r", "other", kNone, JX_ERR_OPEN, "",
         "g_fopen other_r failed: 2(No such file or directory)."},
        {jx_clear_module_file, "r", "app", Call::kFsync, 0, "esp",
         "jx_clear_module_file fsync(app_r) failed:err[5:Input/output error]."},
        {jx_clear_module_file, "r", "app", Call::kFopen, JX_ERR_OPEN, "e",
         "ram_check app_r failed: -3999989."},
        {clear_own, "c", "app", kNone, 0, "ep", ""},
        {clear_own, "c", "", kNone, JX_ERR_OPEN, "",
         "jx_clear_module_file(c) failed: ret -3999989."},
    };
    for (const ClearRow &row : rows) {
        SCOPED_TRACE(std::string(row.name) + " of " + row.module);
        const std::string path = tier_path("app", row.name), package = path.substr(14) + ".tar.gz";
        for (const std::string &file : {path, kPram + package, kSave + package}) {
            write_file(file, "old");
        }
        write_file(path + ".sha256", "stale");
        log.clear();
        IoFaults faults;
        fail_once(faults, row.fault, row.fault == Call::kFopen ? 2 : 1,
                  row.fault == Call::kFopen ? EACCES : EIO);
        EXPECT_EQ(row.clear(row.name, row.module), row.rc);
        EXPECT_EQ(read_file(path), has(row.effects, 'e') ? "" : "old");
        EXPECT_EQ(read_file(path + ".sha256"),
                  has(row.effects, 's') ? side_file_text("") : "stale");
        EXPECT_EQ(exists(kPram + package) + exists(kSave + package), has(row.effects, 'p') ? 0 : 2);
        EXPECT_EQ(last_line(log), row.line);
    }
    EXPECT_FALSE(exists(kPram + "other_r") || exists(kPram + "_c"));
}

// A log file is emptied without a sync or side file; only a sized one loses its package.
TEST_F(MaintenanceTest, ClearLogFileEmptiesItAndDropsTheConfiguredPackage) {
    JxItemCfg cfg = item_cfg("app.log", JX_PROTECT_C, 0, "/opt/ulx/save/app.log");
    cfg.package_path = "/opt/ulx/save/app.log.tar.gz";
    write_file(cfg.package_path, "package");
    LogCapture log;
    IoFaults faults;
    EXPECT_EQ(jx_clear_log_file(&cfg), JX_ERR_OPEN);
    EXPECT_EQ(last_line(log), "g_fopen app.log failed: 2(No such file or directory).");
    write_file(cfg.path, "lines");
    EXPECT_EQ(jx_clear_log_file(&cfg), 0);
    EXPECT_TRUE(read_file(cfg.path).empty() && exists(cfg.package_path));
    cfg.package_size = 10;
    faults.fail(Call::kFflush, 1, EIO);
    EXPECT_EQ(jx_clear_log_file(&cfg), JX_ERR_WRITE);
    EXPECT_EQ(last_line(log),
              "jx_clear_log_file fflush(app.log) failed:err[5:Input/output error].");
    EXPECT_TRUE(exists(cfg.package_path));
    EXPECT_EQ(jx_clear_log_file(&cfg), 0);
    EXPECT_FALSE(exists(cfg.package_path) || exists(std::string(cfg.path) + ".sha256"));
    EXPECT_EQ(faults.count(Call::kFsync), 0);
}

struct EditRow {
    char op;  // i: insert(data, length), d: delete(length), m: modify(data, replaced length)
    std::string data;
    uint32_t offset, length;
    int32_t rc;
    std::string result;  // the initial digits: neither the file nor its side file changes
    const char *line;    // follows the file's base name
};

const std::string kDigits = "0123456789", kNul("a\0b", 3);
const EditRow kEdits[] = {
    {'i', "<", 0, 1, 0, "<0123456789", ""},
    {'i', "--", 4, 2, 0, "0123--456789", ""},
    {'i', ">", 10, 1, 0, "0123456789>", ""},
    {'i', ">", 11, 1, 0, "0123456789>", ""},
    {'i', kNul, 1000, 3, 0, kDigits + kNul, ""},
    {'i', "x", 0, 0, 0, kDigits, ""},
    {'i', "x", 0, UINT32_MAX, JX_ERR_NO_MEMORY, kDigits, " new length 4294967305 beyond 4 GiB."},
    {'d', "", 2, 3, 0, "0156789", ""},
    {'d', "", 8, 2, 0, "01234567", ""},
    {'d', "", 8, 5, 0, "01234567", ""},
    {'d', "", 8, UINT32_MAX, 0, "01234567", ""},
    {'d', "", 0, 10, 0, "", ""},
    {'d', "", 10, 1, 0, kDigits, ""},
    {'d', "", 11, 1, 0, kDigits, ""},
    {'d', "", 0, 0, 0, kDigits, ""},
    {'m', "uvwxyz", 0, 20, 0, "uvwxyz", ""},
    {'m', "12345", 1, 2, 0, "0123453456789", ""},
    {'m', "Z", 9, 1, 0, "012345678Z", ""},
    {'m', "END", 8, UINT32_MAX, 0, "01234567END", ""},
    {'m', "x", 10, 1, JX_ERR_PARAM3, kDigits, ""},
    {'m', "x", 11, 1, JX_ERR_PARAM3, kDigits, ""},
};

int32_t run_edit(const EditRow &row, JxFile *handle) {
    const auto size = static_cast<uint32_t>(row.data.size());
    switch (row.op) {
    case 'i': return jx_insert(row.data.data(), row.length, row.offset, handle);
    case 'd': return jx_delete(row.length, row.offset, handle);
    default: return jx_modify(row.data.data(), size, row.offset, row.length, handle);
    }
}

// Every edit rewrites the side file, whatever the protect mode.
TEST_F(MaintenanceTest, EditsRebuildTheWholeContentAndItsSideFile) {
    ASSERT_EQ(register_items("app", {item_cfg("r", JX_PROTECT_R), item_cfg("c", JX_PROTECT_C)}), 0);
    for (const std::string name : {"r", "c"}) {
        Handle handle = open_handle(name.c_str(), "a+");
        const std::string path = tier_path("app", name.c_str());
        for (const EditRow &row : kEdits) {
            SCOPED_TRACE(name + " " + row.op + " at " + std::to_string(row.offset));
            write_file(path, kDigits);
            write_file(path + ".sha256", "stale");
            LogCapture log;
            EXPECT_EQ(run_edit(row, handle.get()), row.rc);
            EXPECT_EQ(read_file(path), row.result);
            EXPECT_EQ(read_file(path + ".sha256"),
                      row.result != kDigits ? side_file_text(row.result) : "stale");
            EXPECT_EQ(last_line(log), *row.line != '\0' ? "app_" + name + row.line : "");
        }
    }
}

// The character reaches storage at once; protected modes refresh the side file.
TEST_F(MaintenanceTest, FputcWritesTheLowByteAndRefreshesProtectedSideFiles) {
    ASSERT_EQ(chdir(kPram.c_str()), 0);
    ASSERT_EQ(register_items("app", {item_cfg("r", JX_PROTECT_R), item_cfg("c", JX_PROTECT_C),
                                     item_cfg("f", JX_PROTECT_F)}),
              0);
    Handle r = open_handle("r", "w+"), c = open_handle("c", "w+"), f = open_handle("f", "w+");
    const std::string r_path = tier_path("app", "r"), c_path = tier_path("app", "c");
    EXPECT_EQ(jx_fputc('X', c.get()), 0);
    EXPECT_EQ(read_file(c_path), "X");
    EXPECT_FALSE(exists(c_path + ".sha256"));
    EXPECT_EQ(jx_fputc(0x100 + 'Y', r.get()), 0);
    EXPECT_EQ(read_file(r_path + ".sha256"), side_file_text("Y"));
    LogCapture log;
    IoFaults faults;
    faults.fail(Call::kFputc, 1, EIO);
    EXPECT_EQ(jx_fputc('Z', r.get()), JX_ERR_WRITE);
    EXPECT_EQ(last_line(log), "fputc(app_r) failed:  errno 5(Input/output error)");
    EXPECT_EQ(jx_fputc('X', f.get()), JX_ERR_WRITE);
    EXPECT_EQ(last_line(log), "ram_check(app_f) failed: -3999993");
    EXPECT_EQ(read_file(tier_path("app", "f")), "X");
}

}  // namespace
