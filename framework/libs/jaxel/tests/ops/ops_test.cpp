// Behaviour that repeats across the exported operations, one table each:
// argument-position codes, reboot refusal, waiting for another process's
// lock, and failures at each durable step.
#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "jaxel.h"
#include "support/builders.h"
#include "support/io_faults.h"
#include "support/lock_holder.h"
#include "support/log_capture.h"
#include "support/oracle.h"
#include "support/sandbox.h"

namespace jx::test {
namespace {

#define CALL(expr) [&]() -> int32_t { return static_cast<int32_t>(expr); }
#define OPENS(expr) CALL((expr) != nullptr)
#define EIO_TEXT "Input/output error"

using Op = std::function<int32_t()>;
const std::string kData = "/opt/ulx/pram/app_data", kPlain = "/opt/ulx/pram/app_plain";
const std::string kLog = "/opt/ulx/pram/svc.log", kKey = "/opt/ulx/pram/app.ini";
const std::string kSave = "/opt/ulx/save/save.bin", kExtra = "/opt/ulx/pram/app_extra";
const std::string kTable = "/opt/ulx/pram/fsync_reg.ini";
const char *const kReboot = "reboot processing, operation stopped.";
const char *const kNullPtr = "invalid input para: ptr is NULL.";
const char *const kNullStream = "invalid input para: stream or stream->fd is NULL.";
constexpr int32_t kNoLine = 12345;          // the expected log line did not come
enum Guard { kLogged, kSilent, kIgnored };  // how a call meets the reboot flag
enum Side { kValid, kStale, kUnchecked };   // the side file against the content

// A call that changes a file, the file whose lock it waits for ("" for none),
// its result, and how it meets the reboot flag.
struct Mutation {
    std::string locked;
    Op call;
    int32_t result;
    Guard guard;
};

class OpsTest : public SandboxTest {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        restore_files();
        write_file(kExtra, "extra");
        key_fd = open(kKey.c_str(), O_RDWR | O_CLOEXEC);
        ASSERT_EQ(register_items("app", {item_cfg("data", JX_PROTECT_R), item_cfg("plain", 1)}), 0);
        data = open_handle("data", "a+");
        plain = open_handle("plain", "a+");
        logh = Handle(jx_fopen_log_file(&log_cfg, "a"), jx_fclose_log_file);
        ASSERT_TRUE(data && plain && logh && key_fd >= 0);
        g_key_file_set_string(key.get(), "g", "k", "w");
    }
    void TearDown() override { close(key_fd); }
    static void restore_files() {
        for (const std::string &file : {kData, kPlain, kLog, kKey, kSave}) {
            write_file(file, file == kKey ? "[g]\nk=v\n" : file == kLog ? "log\n" : "hello");
        }
        write_file(kData + ".sha256", side_file_text("hello"));
        unlink((kKey + ".sha256").c_str());
    }
    static std::string snapshot() {
        std::string all;
        for (const std::string &file : {kTable, kData, kData + ".sha256", kLog, kKey + ".sha256"}) {
            all += (exists(file) ? read_file(file) : "<none>") + "|";
        }
        return all;
    }
    static int32_t reopen(const char *mode) { return open_handle("data", mode) != nullptr; }
    // Opens the key file held under the lock of key_fd, then closes it.
    int32_t key_cycle() const {
        GKeyFile *held = jx_open_key_file(kKey.c_str(), key_fd, 1);
        return held == nullptr ? -1 : jx_close_key_file(held, key_fd, 1);
    }
    std::vector<Mutation> mutations() {
        return {
            {kData, CALL(write_text(data.get(), "abc")), 3, kLogged},
            {kPlain, CALL(write_text(plain.get(), "abc")), 3, kLogged},
            {kLog, CALL(jx_fwrite_log("abc", 1, 3, logh.get())), 3, kLogged},
            {kData, CALL(jx_fputc('x', data.get())), 0, kIgnored},
            {kData, CALL(jx_insert("x", 1, 0, data.get())), 0, kSilent},
            {kData, CALL(jx_delete(1, 0, data.get())), 0, kSilent},
            {kData, CALL(jx_modify("x", 1, 0, 1, data.get())), 0, kSilent},
            {kData, CALL(jx_clear_module_file("data", "app")), 0, kLogged},
            {kData, CALL(jx_clear_file("data")), 0, kLogged},
            {kLog, CALL(jx_clear_log_file(&log_cfg)), 0, kLogged},
            {"", CALL(jx_writeback_key_file(key.get(), kKey.c_str())), 0, kLogged},
            {kData, CALL(reopen("r+")), 1, kIgnored},   // checks the file under its lock
            {kTable, CALL(reopen("r+")), 1, kIgnored},  // after its lookup in the table
            {kTable, CALL((jx_flush_file(data.get()), 0)), 0, kIgnored},
            {kTable, CALL(jx_recovery_flash_bak(kData.c_str())), 0, kIgnored},
            {kTable, CALL(jx_recover_factory_cfg("/opt/ulx/save")), 0, kIgnored},
            {kTable, CALL((ram_check_update(JX_PROTECT_R), 0)), 0, kIgnored},
            {kTable, CALL(jx_init(&extra, 1)), 0, kLogged},
            {kExtra, CALL(jx_init_cfg(&extra, 1, "app")), 0, kLogged},
            {kKey, CALL(key_cycle()), 0, kIgnored},
            // Failures after the lock was taken release it all the same.
            {kData, CALL(jx_modify("x", 1, 99, 1, data.get())), JX_ERR_PARAM3, kSilent},
            {kTable, CALL(jx_init_cfg(&bad_mode, 1, "app")), JX_ERR_PROTECT_MODE, kLogged},
            {kKey, CALL((write_file(kKey, "not a key file"), key_cycle())), -1, kIgnored},
        };
    }

    Handle data{nullptr, jx_fclose}, plain{nullptr, jx_fclose}, logh{nullptr, jx_fclose};
    JxItemCfg log_cfg = item_cfg("svc.log", JX_PROTECT_C, 0, kLog.c_str());
    JxItemCfg extra = item_cfg("extra", JX_PROTECT_R), bad_mode = item_cfg("bad", 6);
    JxFile closed{};  // a handle whose stream is null
    int key_fd = -1;
    std::unique_ptr<GKeyFile, void (*)(GKeyFile *)> key{g_key_file_new(), g_key_file_free};
};

TEST_F(OpsTest, BadArgumentsAnswerWithTheirPosition) {
    JxFile *h = data.get();
    uint32_t size = 0;
    const struct {
        Op call;
        int32_t code;
        const char *line;
    } rows[] = {
        {CALL(jx_set_module_name(nullptr)), JX_ERR_PARAM1, nullptr},
        {CALL(jx_init_cfg(nullptr, 1, "app")), JX_ERR_PARAM1, nullptr},
        {CALL(jx_init(&extra, 0)), JX_ERR_PARAM2, "jx_init_cfg failed: ret -3999999."},
        {CALL(jx_fwrite(nullptr, 1, 1, h)), JX_ERR_PARAM1, kNullPtr},
        {CALL(jx_fwrite("x", 1, 1, &closed)), JX_ERR_PARAM4, kNullStream},
        {CALL(jx_fwrite_log(nullptr, 1, 1, logh.get())), JX_ERR_PARAM1, kNullPtr},
        {CALL(jx_fwrite_log("x", 1, 1, nullptr)), JX_ERR_PARAM4, kNullStream},
        {CALL(jx_get_package_size(nullptr, &size)), JX_ERR_PARAM1, nullptr},
        {CALL(jx_get_package_size("data", nullptr)), JX_ERR_PARAM2, nullptr},
        {CALL(jx_sync_privilege("/opt/ulx", kLog.c_str())), JX_ERR_PARAM1, nullptr},
        {CALL(jx_sync_privilege(kLog.c_str(), "")), JX_ERR_PARAM2, nullptr},
        {CALL(jx_clear_module_file(nullptr, "app")), JX_ERR_PARAM1, nullptr},
        {CALL(jx_clear_module_file("data", nullptr)), JX_ERR_PARAM2, nullptr},
        {CALL(jx_clear_file(nullptr)), JX_ERR_PARAM1, nullptr},
        {CALL(jx_clear_log_file(nullptr)), JX_ERR_PARAM1, nullptr},
        {CALL(jx_fputc('x', &closed)), JX_ERR_PARAM2, nullptr},
        {CALL(jx_insert(nullptr, 1, 0, h)), JX_ERR_PARAM1, nullptr},
        {CALL(jx_insert("x", 0, 0, nullptr)), JX_ERR_PARAM4, nullptr},
        {CALL(jx_delete(1, 0, &closed)), JX_ERR_PARAM3, nullptr},
        {CALL(jx_modify(nullptr, 1, 0, 1, h)), JX_ERR_PARAM1, nullptr},
        {CALL(jx_modify("x", 0, 0, 1, h)), JX_ERR_PARAM2, nullptr},
        {CALL(jx_modify("x", 1, 5, 1, h)), JX_ERR_PARAM3, nullptr},
        {CALL(jx_modify("x", 1, 0, 0, h)), JX_ERR_PARAM4, nullptr},
        {CALL(jx_modify("x", 1, 0, 1, nullptr)), JX_ERR_PARAM5, nullptr},
        {CALL(jx_set_content(nullptr, "x", 1)), JX_ERR_PARAM1, nullptr},
        {CALL(jx_set_content(kLog.c_str(), nullptr, 1)), JX_ERR_PARAM2, nullptr},
        {CALL(jx_check_recovery_rambak(nullptr)), JX_ERR_PARAM1, nullptr},
        {CALL(jx_recovery_flash_bak(nullptr)), JX_ERR_PARAM1, nullptr},
        {CALL(jx_close_key_file(nullptr, key_fd, 1)), JX_ERR_PARAM1, nullptr},
        {CALL(jx_writeback_key_file(nullptr, kKey.c_str())), JX_ERR_PARAM1, nullptr},
        {CALL(jx_writeback_key_file(key.get(), "/opt/ulx/save/k")), JX_ERR_PARAM2, nullptr},
        {CALL(jx_recover_factory_cfg(nullptr)), JX_ERR_PARAM1, nullptr},
        {OPENS(jx_fopen_file(nullptr, "app", "r")), 0, "input para invalid: short_name."},
        {OPENS(jx_fopen_file("data", nullptr, "r")), 0, "input para invalid: module_name."},
        {OPENS(jx_fopen_file("data", "app", nullptr)), 0, "input para invalid: mode."},
        {OPENS(jx_fopen_log_file(nullptr, "a")), 0, "input para invalid: jx_info."},
        {OPENS(jx_fopen_log_file(&log_cfg, nullptr)), 0, "input para invalid: mode."},
        {OPENS(jx_open_key_file("/opt/ulx/save/k", key_fd, 0)), 0, nullptr},
        {OPENS(jx_open_key_file(kKey.c_str(), -1, 0)), 0, nullptr},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(&row - rows);
        LogCapture capture;
        EXPECT_EQ(row.call(), row.code);
        EXPECT_EQ(capture.messages(),
                  row.line ? std::vector<std::string>{row.line} : std::vector<std::string>{});
    }
}

TEST_F(OpsTest, RebootFlagStopsGuardedCallsAndChangesNothing) {
    write_file("/dev/shm/.Reboot.flag", "");
    const std::vector<Mutation> rows = mutations();
    for (const Mutation &row : rows) {
        SCOPED_TRACE(&row - rows.data());
        restore_files();
        const std::string before = snapshot();
        LogCapture capture;
        EXPECT_EQ(row.call(), row.guard == kIgnored ? row.result : JX_ERR_REBOOTING);
        if (row.guard != kIgnored) {
            EXPECT_EQ(snapshot(), before);
            const auto lines = capture.messages();
            EXPECT_EQ(!lines.empty() && lines.front() == kReboot, row.guard == kLogged);
        }
    }
}

TEST_F(OpsTest, CallsWaitForAnotherProcessesLockAndReleaseIt) {
    const std::vector<Mutation> rows = mutations();
    for (const Mutation &row : rows) {
        SCOPED_TRACE(&row - rows.data());
        if (!row.locked.empty()) {
            const LockWait wait = call_under_lock(row.locked, row.call);
            EXPECT_TRUE(wait.waited && wait.ran && wait.released);
            EXPECT_EQ(wait.result, row.result);
            EXPECT_EQ(wait.descriptors, 0);
        }
    }
}

// A durable step fails: the code and line, the lock released, no descriptor
// left, and what the file and its side file hold afterwards.
TEST_F(OpsTest, FailedDurableStepsReportAndLeaveAKnownState) {
    using enum Call;
    JxFile *h = data.get();
    const Op write = CALL(write_text(h, "abc")), insert = CALL(jx_insert("abc", 3, 5, h));
    const Op putc = CALL(jx_fputc('x', h)), clear = CALL(jx_clear_file("data"));
    const Op plain_write = CALL(write_text(plain.get(), "abc"));
    const Op clear_log = CALL(jx_clear_log_file(&log_cfg));
    const Op writeback = CALL(jx_writeback_key_file(key.get(), kKey.c_str()));
    const Op set = CALL(jx_set_content(kSave.c_str(), "abc", 3));
    const struct {
        std::string file;
        Op call;
        Call seam;
        int nth;
        int32_t code;
        const char *line;
        const char *content;
        Side side;
    } rows[] = {
        {kData, write, kFopen, 1, 0, "g_fopen (app_data.sha256) failed: errno 5(" EIO_TEXT ").",
         "hello", kValid},
        {kData, write, kFsync, 1, 0,
         "jx_set_content fsync(app_data.sha256) failed:err[5:" EIO_TEXT "].", "hello", kStale},
        {kData, write, kFtruncate, 1, 0, "ftruncate(app_data) failed: errno 5(" EIO_TEXT ").",
         "hello", kStale},
        {kData, write, kFwrite, 2, 0, "fwrite app_data failed.", "", kStale},
        {kData, write, kFsync, 2, 0, "fwrite fsync(app_data) failed:err[5:" EIO_TEXT "].",
         "helloabc", kValid},
        {kData, insert, kFflush, 1, JX_ERR_WRITE,
         "jx_set_content fflush(app_data.sha256) failed:err[5:" EIO_TEXT "].", "hello", kStale},
        {kData, insert, kFsync, 2, JX_ERR_WRITE,
         "fwrite fsync(app_data) failed:err[5:" EIO_TEXT "].", "helloabc", kValid},
        {kPlain, plain_write, kFwrite, 1, 0,
         "fwrite app_plain (sz 1 count 3) failed: wcnt 0 errno 5(" EIO_TEXT ")", "hello",
         kUnchecked},
        {kPlain, plain_write, kFsync, 1, 0, "fwrite fsync(app_plain) failed:err[5:" EIO_TEXT "].",
         "helloabc", kUnchecked},
        {kData, putc, kFputc, 1, JX_ERR_WRITE, "fputc(app_data) failed:  errno 5(" EIO_TEXT ")",
         "hello", kValid},
        {kData, putc, kFsync, 1, JX_ERR_WRITE, "ram_check(app_data) failed: -3999987", "hellox",
         kValid},
        {kData, clear, kFtruncate, 1, JX_ERR_WRITE, "ftruncate(app_data) failed.", "hello", kValid},
        {kData, clear, kFsync, 1, 0,
         "jx_clear_module_file fsync(app_data) failed:err[5:" EIO_TEXT "].", "", kValid},
        {kData, clear, kFsync, 2, JX_ERR_WRITE, "ram_check app_data failed: -3999987.", "", kValid},
        {kLog, clear_log, kFflush, 1, JX_ERR_WRITE,
         "jx_clear_log_file fflush(svc.log) failed:err[5:" EIO_TEXT "].", "", kUnchecked},
        {kKey, writeback, kFopen, 1, JX_ERR_OPEN, "", "[g]\nk=v\n", kUnchecked},
        {kKey, writeback, kFsync, 1, JX_ERR_WRITE,
         "fsync(app.ini) failed: ret [-1] errno [5: " EIO_TEXT "].", "[g]\nk=w\n", kUnchecked},
        {kKey, writeback, kFopen, 2, JX_ERR_OPEN, "__ram_check_sum(app.ini) failed: -3999989.",
         "[g]\nk=w\n", kUnchecked},
        {kSave, set, kFwrite, 1, JX_ERR_WRITE,
         "fwrite(save.bin len 3) failed: wret 0 errno 5(" EIO_TEXT ")", "", kUnchecked},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(&row - rows);
        restore_files();
        const Op faulted = [&] {
            LogCapture capture;
            IoFaults faults;
            faults.fail(row.seam, row.nth, EIO);
            const int32_t code = row.call();
            return (*row.line ? capture.contains(row.line) : capture.messages().empty()) ? code
                                                                                         : kNoLine;
        };
        const bool locks = row.file != kKey && row.file != kSave;  // these two take no lock
        const LockWait wait =
            locks ? call_under_lock(row.file, faulted) : LockWait{true, faulted(), true, 0, true};
        EXPECT_TRUE(wait.waited && wait.ran && wait.released);
        EXPECT_EQ(wait.result, row.code);
        EXPECT_EQ(wait.descriptors, 0);
        EXPECT_EQ(read_file(row.file), row.content);
        if (row.side != kUnchecked) {
            EXPECT_EQ(read_file(row.file + ".sha256") == side_file_text(row.content),
                      row.side == kValid);
        }
    }
}

}  // namespace
}  // namespace jx::test
