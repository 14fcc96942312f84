#include <cerrno>

#include "journal/journal.h"
#include "support/support.h"

namespace jx::test {
namespace {

const std::string kData = "/opt/ulx/pram/app_data", kDurable = "/opt/ulx/save/app_data";
const char kOddName[] = "it's odd;touch stray";  // must reach tar as one word

std::vector<JxModuleItem *> g_packed;  // items handed to the callback
void on_package(JxModuleItem *item) { g_packed.push_back(item); }

using HandleTest = SandboxTest;

std::string last(const LogCapture &l) { return l.messages().empty() ? "" : l.messages().back(); }

TEST_F(HandleTest, OpensWritesFlushesAndPacks) {
    ASSERT_EQ(register_items("app", {item_cfg("data", JX_PROTECT_E),
                                     item_cfg("plain", JX_PROTECT_C, 4, nullptr, on_package),
                                     item_cfg(kOddName, JX_PROTECT_E, 6, nullptr, on_package)}),
              JX_OK);
    const std::tuple<const char *, const char *, bool, bool, bool, const char *> rows[] = {
        {"plain", "w", false, false, false, "unsupport mode: w."},
        {"plain", "r+", false, true, false, ""},
        {"unknown", "r", false, false, false, "unknown not register."},
        {"data", "w", true, false, false, "jx_clear_module_file failed: -3999972."},
        {"data", "w+b", false, true, true, ""},
    };
    for (const auto &[name, mode, rebooting, opens, clears, message] : rows) {
        write_file(kData, "old");
        const std::string side = side_file_text("old") + "\n";  // still matches "old"
        write_file(kData + ".sha256", side);
        write_file("/opt/ulx/pram/app_plain", "old");
        rebooting ? write_file("/dev/shm/.Reboot.flag", "") : (void)remove("/dev/shm/.Reboot.flag");
        LogCapture log;
        EXPECT_EQ(open_handle(name, mode) != nullptr, opens) << name << " " << mode;
        EXPECT_EQ(last(log), message);
        EXPECT_EQ(read_file(kData), clears ? "" : "old");
        EXPECT_EQ(read_file(kData + ".sha256"), clears ? side_file_text("") : side);
    }
    write_file(kData, "torn");  // fails its side file: the open rebuilds it from the durable copy
    write_file(kData + ".sha256", side_file_text("hello"));
    write_file(kDurable, "hello");
    Handle append = open_handle("data", "a+bbbb");
    EXPECT_EQ(std::string(append->file_name) + "|" + append->package_name + "|" + append->mode,
              "app_data|app_data.tar.gz|a+bbb");
    fseek(append->fd, 0, SEEK_SET);
    EXPECT_EQ(write_text(append.get(), "XY"), 2);  // appends whatever the position
    Handle update = open_handle("data", "r+");
    // Every open applies the registered privilege; the repair had copied the durable copy's.
    EXPECT_TRUE((stat_of(kData).st_mode & 07777) == 0640u && stat_of(kData).st_gid == kTestGroup);
    fseek(update->fd, 1, SEEK_SET);
    EXPECT_EQ(jx_fwrite("ABCD", 2, 2, update.get()), 2);
    EXPECT_EQ(ftell(update->fd), 5);
    fseek(update->fd, 9, SEEK_SET);
    EXPECT_EQ(write_text(update.get(), "Z"), 1);
    EXPECT_EQ(write_text(open_handle("data", "r").get(), "no"), 0);  // writes nothing
    EXPECT_EQ(read_file(kData), std::string("hABCDXY\0\0Z", 10));
    EXPECT_EQ(read_file(kData + ".sha256"), side_file_text(read_file(kData)));
    // Flushing syncs the stream, then each companion; a missing one is skipped after its line.
    remove((kDurable + ".bak.sha256").c_str());
    {
        IoFaults faults;
        LogCapture log;
        jx_flush_file(update.get());
        EXPECT_EQ(faults.count(Call::kFsync), 4);
        EXPECT_EQ(last(log),
                  "jx_flush_file g_fopen(app_data.bak.sha256) failed: "
                  "err[2: No such file or directory].");
    }
    // Module files are packed in place under their own name, log files through a
    // copy "md_so_<name>" into the directory of their package path (else their own).
    const std::tuple<const char *, const char *, const char *, uint32_t> packings[] = {
        {nullptr, kOddName, nullptr, 0},
        {"/opt/ulx/logs", "applog", nullptr, 3},
        {"/opt/ulx/a b;c'd", "it's;touch stray", "/opt/ulx/a b;c'd/other.tar.gz", 6},
    };
    for (const auto &[log_dir, name, package_path, items_logged] : packings) {
        g_packed.clear();
        const std::string dir = log_dir ? log_dir : "/opt/ulx/pram",
                          file = log_dir ? name : std::string("app_") + name,
                          path = dir + "/" + file;
        JxItemCfg cfg = item_cfg(name, JX_PROTECT_C, 6, path.c_str(), on_package);
        cfg.package_path = package_path;
        mkdir(dir.c_str(), 0755);
        JxFile *handle = log_dir ? jx_fopen_log_file(&cfg, "a") : jx_fopen(name, "a");
        ASSERT_NE(handle, nullptr) << name;
        const auto write = log_dir ? jx_fwrite_log : jx_fwrite;
        IoFaults faults;
        // Packed before the third write, at exactly the size, not at one below.
        for (const char *part : {"12345", "6", "7"})
            EXPECT_EQ(write(part, static_cast<uint32_t>(std::string(part).size()), 1, handle), 1);
        EXPECT_EQ(read_file(path), "7");
        EXPECT_EQ(jx_wirte_cnt_get(1), items_logged);  // items, not bytes, in this process
        // Per write its record, the record's directory twice, side file and content;
        // once the new side file's directory. The roll-over's record adds the
        // package and its directory. Log writes are never synced, only that record.
        EXPECT_EQ(faults.count(Call::kFsync), log_dir ? 6 : 23);
        EXPECT_EQ(tar("-tzf", path + ".tar.gz"), (log_dir ? "md_so_" : "") + file + "\n");
        EXPECT_EQ(tar("-xzOf", path + ".tar.gz"), "123456");
        EXPECT_EQ(stat_of(path + ".tar.gz").st_mode & 07777, 0440u);
        EXPECT_EQ(g_packed, std::vector<JxModuleItem *>{handle->item});
        EXPECT_FALSE(exists(dir + "/stray") || exists(dir + "/md_so_" + file) ||
                     exists(redo_record_path(path.c_str()) + ".tar.gz"));
        EXPECT_EQ(read_file(path + ".sha256"), log_dir ? "" : side_file_text("7"));
        log_dir ? jx_fclose_log_file(handle) : jx_fclose(handle);
    }
    // While packing fails the file may grow to twice its size, then writes stop;
    // a package that is not on storage does not count.
    const std::tuple<std::string, Call, int32_t, std::string> failing[] = {
        {"abcd", Call::kRun, 1,
         "exce cmd failed: cd /opt/ulx/pram/;tar -czf " +
             redo_record_path("/opt/ulx/pram/app_plain") + ".tar.gz app_plain 2."},
        {"abcdefgh", Call::kRun, 0, "jx_package failed: ret -3999979."},
        {"abcdefgh", Call::kFsync, 0, "jx_package failed: ret -3999979."},
    };
    for (const auto &[prefill, call, written, message] : failing) {
        write_file("/opt/ulx/pram/app_plain", prefill);
        Handle handle = open_handle("plain", "a");
        IoFaults faults;
        faults.fail(call, 1, ENOENT, true);
        LogCapture log;
        EXPECT_EQ(write_text(handle.get(), "x"), written) << message;
        EXPECT_EQ(last(log), message);
        EXPECT_EQ(read_file("/opt/ulx/pram/app_plain"), prefill + std::string(written, 'x'));
    }
    // A log package right under "/" is packed from "/": the failing run only logs the command.
    JxItemCfg cfg = item_cfg("l", JX_PROTECT_C, 1, "/opt/ulx/l");
    cfg.package_path = "/l.tar.gz";
    const Handle logged(jx_fopen_log_file(&cfg, "a"), jx_fclose_log_file);
    IoFaults faults;
    faults.fail(Call::kRun, 1, ENOENT, true);
    LogCapture log;
    EXPECT_EQ(jx_fwrite_log("ab", 2, 1, logged.get()) + jx_fwrite_log("c", 1, 1, logged.get()), 1);
    EXPECT_TRUE(log.contains("exce cmd failed failed: cd /;cp l md_so_l;tar -czf " +
                             redo_record_path("/opt/ulx/l") + ".tar.gz md_so_l;rm -f md_so_l(1)"));
}

}  // namespace
}  // namespace jx::test
