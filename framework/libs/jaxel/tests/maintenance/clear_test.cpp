#include <atomic>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <string>
#include <sys/file.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "frame/locations.h"
#include "frame/module_list.h"
#include "handles/handle_fixture.h"
#include "jaxel.h"
#include "support/io_faults.h"
#include "support/lock_holder.h"
#include "support/log_capture.h"

namespace {

using jx::test::Call;
using jx::test::exists;
using jx::test::item_cfg;
using jx::test::read_file;
using jx::test::side_file_text;
using jx::test::write_file;
using Messages = std::vector<std::string>;
using ClearTest = jx::test::HandleTest;

const std::string kPram = "/opt/ulx/pram/";
const std::string kSave = "/opt/ulx/save/";

// Registers short_name for "app" and gives it content and a stale side file.
std::string make_file(const JxItemCfg &cfg, const std::string &content = "old content") {
    const std::string path = jx::test::register_for_test("app", cfg);
    write_file(path, content);
    write_file(path + ".sha256", "stale");
    return path;
}

void make_packages(const std::string &short_name) {
    write_file(kPram + "app_" + short_name + ".tar.gz", "pram package");
    write_file(kSave + "app_" + short_name + ".tar.gz", "saved package");
}

bool packages_exist(const std::string &short_name) {
    return exists(kPram + "app_" + short_name + ".tar.gz") &&
           exists(kSave + "app_" + short_name + ".tar.gz");
}

TEST_F(ClearTest, ArgumentsAndAnEmptyListAreRefusedFirst) {
    jx::test::LogCapture log;
    EXPECT_EQ(jx_clear_module_file(nullptr, "app"), JX_ERR_PARAM1);
    EXPECT_EQ(jx_clear_module_file("net.conf", nullptr), JX_ERR_PARAM2);
    EXPECT_EQ(jx_clear_file(nullptr), JX_ERR_PARAM1);
    EXPECT_EQ(jx_clear_log_file(nullptr), JX_ERR_PARAM1);
    EXPECT_TRUE(log.messages().empty());

    ASSERT_EQ(jx::g_jx_reg_list, nullptr);
    EXPECT_EQ(jx_clear_file("net.conf"), JX_ERR_STATE);
    EXPECT_EQ(log.messages(), (Messages{"g_jx_reg_list invalid.",
                                        "jx_clear_module_file(net.conf) failed: ret -3999995."}));
}

TEST_F(ClearTest, UnregisteredOrMissingFilesAreNeverCreated) {
    const std::string path = jx::test::register_for_test("app", item_cfg("net.conf", JX_PROTECT_R));
    jx::test::LogCapture log;

    EXPECT_EQ(jx_clear_module_file("other.conf", "app"), JX_ERR_NOT_REGISTERED);
    EXPECT_EQ(log.messages(), Messages{"other.conf not register."});

    log.clear();
    EXPECT_EQ(jx_clear_module_file("net.conf", "app"), JX_ERR_OPEN);
    EXPECT_EQ(log.messages(),
              Messages{"g_fopen app_net.conf failed: 2(No such file or directory)."});
    EXPECT_FALSE(exists(path));
    EXPECT_FALSE(exists(path + ".sha256"));
}

TEST_F(ClearTest, TheSideFileFollowsTheProtectMode) {
    for (const uint32_t mode : {JX_PROTECT_R, JX_PROTECT_E, JX_PROTECT_S, JX_PROTECT_P}) {
        const std::string name = "m" + std::to_string(mode);
        const std::string path = make_file(item_cfg(name.c_str(), mode));
        ASSERT_EQ(jx_clear_module_file(name.c_str(), "app"), 0) << name;
        EXPECT_EQ(read_file(path), "") << name;
        EXPECT_EQ(read_file(path + ".sha256"), side_file_text("")) << name;
        EXPECT_EQ(is_ram_file_valid(path.c_str()), 1) << name;
    }
    const std::string c_path = jx::test::register_for_test("app", item_cfg("c", JX_PROTECT_C));
    write_file(c_path, "content");
    EXPECT_EQ(jx_clear_module_file("c", "app"), 0);
    EXPECT_EQ(read_file(c_path), "");
    EXPECT_FALSE(exists(c_path + ".sha256"));

    // F (short name would be a path) and invalid modes: emptied, refused, packages kept.
    jx::test::register_for_test("app", item_cfg("f", JX_PROTECT_F, 100));
    auto *invalid = static_cast<JxModuleItem *>(g_malloc0(sizeof(JxModuleItem)));
    g_strlcpy(invalid->short_name, "bad", sizeof invalid->short_name);
    invalid->protect_mode = JX_PROTECT_INVALID;
    jx::jx_append_module_item(invalid);
    write_file(kPram + "app_f", "content");
    write_file(kPram + "app_bad", "content");
    make_packages("f");
    jx::test::LogCapture log;
    EXPECT_EQ(jx_clear_module_file("f", "app"), JX_ERR_PROTECT_MODE);
    EXPECT_EQ(jx_clear_module_file("bad", "app"), JX_ERR_PROTECT_MODE);
    EXPECT_EQ(log.messages(), (Messages{"ram_check app_f failed: -3999993.",
                                        "ram_check app_bad failed: -3999993."}));
    EXPECT_EQ(read_file(kPram + "app_f"), "");
    EXPECT_EQ(read_file(kPram + "app_bad"), "");
    EXPECT_TRUE(packages_exist("f"));
}

TEST_F(ClearTest, PackagesAreRemovedOnlyWithAPackageSize) {
    make_file(item_cfg("never.log", JX_PROTECT_C, 0));
    make_packages("never.log");
    EXPECT_EQ(jx_clear_module_file("never.log", "app"), 0);
    EXPECT_TRUE(packages_exist("never.log"));

    make_file(item_cfg("sized.log", JX_PROTECT_C, 10));
    make_packages("sized.log");
    EXPECT_EQ(jx_clear_module_file("sized.log", "app"), 0);
    EXPECT_FALSE(exists(kPram + "app_sized.log.tar.gz"));
    EXPECT_FALSE(exists(kSave + "app_sized.log.tar.gz"));
    EXPECT_EQ(jx_clear_module_file("sized.log", "app"), 0);  // none left: still fine
}

TEST_F(ClearTest, PathComesFromTheArgumentsAndIsResolved) {
    const std::string path = make_file(item_cfg("net.conf", JX_PROTECT_R));
    jx::test::LogCapture log;
    EXPECT_EQ(jx_clear_module_file("net.conf", "other"), JX_ERR_OPEN);
    EXPECT_EQ(log.messages(),
              Messages{"g_fopen other_net.conf failed: 2(No such file or directory)."});
    EXPECT_EQ(read_file(path), "old content");

    write_file(kPram + "other_net.conf", "x");
    EXPECT_EQ(jx_clear_module_file("net.conf", "other"), 0);
    EXPECT_EQ(read_file(kPram + "other_net.conf"), "");
    EXPECT_EQ(read_file(kPram + "other_net.conf.sha256"), side_file_text(""));

    // A link in persistent RAM is cleared at its target, side file included.
    jx::test::register_for_test("app", item_cfg("link.conf", JX_PROTECT_R));
    write_file(kPram + "target.conf", "content");
    ASSERT_EQ(symlink((kPram + "target.conf").c_str(), (kPram + "app_link.conf").c_str()), 0);
    EXPECT_EQ(jx_clear_module_file("link.conf", "app"), 0);
    EXPECT_EQ(read_file(kPram + "target.conf"), "");
    EXPECT_EQ(read_file(kPram + "target.conf.sha256"), side_file_text(""));
}

TEST_F(ClearTest, ClearFileUsesTheModuleNameEvenWhenEmpty) {
    make_file(item_cfg("net.conf", JX_PROTECT_C));
    EXPECT_EQ(jx_clear_file("net.conf"), 0);
    EXPECT_EQ(read_file(kPram + "app_net.conf"), "");

    jx_set_module_name("");
    write_file(kPram + "_net.conf", "x");
    EXPECT_EQ(jx_clear_file("net.conf"), 0);
    EXPECT_EQ(read_file(kPram + "_net.conf"), "");
}

TEST_F(ClearTest, RebootInProgressStopsClearsWithALine) {
    const std::string path = make_file(item_cfg("net.conf", JX_PROTECT_R));
    const std::string log_path = kSave + "app.log";
    write_file(log_path, "log");
    JxItemCfg log_cfg = item_cfg("app.log", JX_PROTECT_C);
    log_cfg.path = log_path.c_str();
    write_file(jx::kRebootFlagPath, "");
    jx::test::LogCapture log;

    EXPECT_EQ(jx_clear_module_file("net.conf", "app"), JX_ERR_REBOOTING);
    EXPECT_EQ(jx_clear_file("net.conf"), JX_ERR_REBOOTING);
    EXPECT_EQ(jx_clear_log_file(&log_cfg), JX_ERR_REBOOTING);
    EXPECT_EQ(log.messages(), (Messages{"reboot processing, operation stopped.",
                                        "reboot processing, operation stopped.",
                                        "jx_clear_module_file(net.conf) failed: ret -3999972.",
                                        "reboot processing, operation stopped."}));
    EXPECT_EQ(read_file(path), "old content");
    EXPECT_EQ(read_file(log_path), "log");
}

TEST_F(ClearTest, StepFailuresAreReportedAndEveryResourceReleased) {
    const std::string path = make_file(item_cfg("net.conf", JX_PROTECT_R, 10));
    make_packages("net.conf");
    const int fds_before = jx::test::open_descriptor_count();
    jx::test::LogCapture log;
    jx::test::IoFaults faults;

    faults.fail(Call::kFtruncate, 1, EIO);
    EXPECT_EQ(jx_clear_module_file("net.conf", "app"), JX_ERR_WRITE);
    EXPECT_EQ(log.messages(), Messages{"ftruncate(app_net.conf) failed."});
    EXPECT_EQ(read_file(path), "old content");

    // Flush and sync failures change nothing of the result.
    log.clear();
    faults.fail(Call::kFflush, 1, EIO);
    faults.fail(Call::kFsync, 1, EIO);
    EXPECT_EQ(jx_clear_module_file("net.conf", "app"), 0);
    EXPECT_EQ(
        log.messages(),
        (Messages{"jx_clear_module_file fflush(app_net.conf) failed:err[5:Input/output error].",
                  "jx_clear_module_file fsync(app_net.conf) failed:err[5:Input/output error]."}));
    EXPECT_EQ(read_file(path + ".sha256"), side_file_text(""));

    // A side file that cannot be written: emptied, error, packages kept.
    make_packages("net.conf");
    write_file(path, "again");
    log.clear();
    faults.fail(Call::kFopen, 2, EACCES);
    EXPECT_EQ(jx_clear_module_file("net.conf", "app"), JX_ERR_OPEN);
    EXPECT_EQ(log.messages().back(), "ram_check app_net.conf failed: -3999989.");
    EXPECT_EQ(read_file(path), "");
    EXPECT_TRUE(packages_exist("net.conf"));

    EXPECT_EQ(jx::test::open_descriptor_count(), fds_before);
    EXPECT_EQ(jx_clear_module_file("net.conf", "app"), 0);
    EXPECT_FALSE(exists(kPram + "app_net.conf.tar.gz"));
}

// Another process holds the file's lock (as a writer would): the clear waits
// for it and only then empties the file.
TEST_F(ClearTest, WaitsForAnotherHolderOfTheFileLock) {
    const std::string path = make_file(item_cfg("net.conf", JX_PROTECT_C));
    jx::test::LockHolder holder(path);
    ASSERT_TRUE(holder.held());

    jx::test::IoFaults faults;
    std::atomic<int32_t> result{1};
    std::thread clearer([&] { result = jx_clear_module_file("net.conf", "app"); });
    while (faults.count(Call::kDelay) < 3 && result == 1) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    EXPECT_EQ(read_file(path), "old content");
    EXPECT_EQ(result, 1);
    ASSERT_TRUE(holder.release());
    clearer.join();
    EXPECT_EQ(result, 0);
    EXPECT_EQ(read_file(path), "");
}

TEST_F(ClearTest, LogFileIsEmptiedWithoutSyncAndLosesOnlyASizedPackage) {
    const std::string log_path = kSave + "app.log";
    const std::string package = kSave + "app.log.tar.gz";
    JxItemCfg cfg = item_cfg("app.log", JX_PROTECT_C, 0);
    cfg.path = log_path.c_str();
    cfg.package_path = package.c_str();
    write_file(package, "package");
    jx::test::LogCapture log;
    jx::test::IoFaults faults;

    EXPECT_EQ(jx_clear_log_file(&cfg), JX_ERR_OPEN);
    EXPECT_EQ(log.messages(), Messages{"g_fopen app.log failed: 2(No such file or directory)."});
    EXPECT_FALSE(exists(log_path));

    write_file(log_path, "lines");
    EXPECT_EQ(jx_clear_log_file(&cfg), 0);
    EXPECT_EQ(read_file(log_path), "");
    EXPECT_TRUE(exists(package));

    cfg.package_size = 10;
    write_file(log_path, "lines");
    log.clear();
    faults.fail(Call::kFflush, 1, EIO);
    EXPECT_EQ(jx_clear_log_file(&cfg), JX_ERR_WRITE);
    EXPECT_EQ(log.messages(),
              Messages{"jx_clear_log_file fflush(app.log) failed:err[5:Input/output error]."});
    EXPECT_TRUE(exists(package));

    EXPECT_EQ(jx_clear_log_file(&cfg), 0);
    EXPECT_FALSE(exists(package));
    EXPECT_FALSE(exists(log_path + ".sha256"));
    EXPECT_EQ(faults.count(Call::kFsync), 0);
}

}  // namespace
