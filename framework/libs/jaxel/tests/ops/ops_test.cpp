// Behaviour that repeats across the exported operations, one table each:
// argument-position codes, waiting for another process's lock and reboot
// refusal, and failures at each durable step.
#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "journal/journal.h"
#include "support/support.h"

namespace jx::test {
namespace {

#define CALL(expr) [&]() -> int32_t { return static_cast<int32_t>(expr); }
#define EIO_P "5(Input/output error)"

using Op = std::function<int32_t()>;
const std::string kData = "/opt/ulx/pram/m_d", kPlain = "/opt/ulx/pram/m_p";
const std::string kLog = "/opt/ulx/pram/l", kKey = "/opt/ulx/pram/k.ini";
const std::string kExtra = "/opt/ulx/pram/m_x", kTable = "/opt/ulx/pram/fsync_reg.ini";
const char *const kNullStream = "invalid input para: stream or stream->fd is NULL.";
enum Guard { kLogged, kSilent, kIgnored };  // how a call meets the reboot flag
using Target = std::pair<std::string, Op>;  // a file and a call that changes it
// The call, the seam call that fails and its number, the result, the log line,
// the content afterwards and the content whose digest the side file holds
// (null: not checked).
using Fault = std::tuple<Target, Call, int, int32_t, const char *, const char *, const char *>;

void restore_files() {
    for (const std::string &file : {kData, kPlain, kLog, kKey, kExtra})
        write_file(file, file == kKey ? "[g]\nk=v\n" : file == kLog ? "log\n" : "old");
    write_file(kData + ".sha256", side_file_text("old"));
    for (const std::string &file : {kData, kPlain})  // what a failed row left pending
        remove(redo_record_path(file.c_str()).c_str());
}

std::string files() {
    return read_file(kTable) + read_file(kData) + read_file(kData + ".sha256") + read_file(kLog) +
           read_file(kKey);
}

int32_t reopen(const char *mode) { return open_handle("d", mode) != nullptr; }

// Opens and closes the key file held under a lock on a descriptor of its own,
// so no lock outlives the call; -2 when the close did not release it.
int32_t key_cycle() {
    const int fd = open(kKey.c_str(), O_RDWR | O_CLOEXEC), probe = open(kKey.c_str(), O_RDONLY);
    GKeyFile *held = jx_open_key_file(kKey.c_str(), fd, 1);
    const int32_t rc = held == nullptr ? -1 : jx_close_key_file(held, fd, 1);
    const bool released = flock(probe, LOCK_EX | LOCK_NB) == 0;
    close(probe);
    close(fd);
    return released ? rc : -2;
}

// It waited for the other process, returned `result`, and left no lock or descriptor.
void expect_clean(const LockWait &wait, int32_t result) {
    EXPECT_TRUE(wait.waited && wait.ran && wait.released && wait.descriptors == 0);
    EXPECT_EQ(wait.result, result);
}

using OpsTest = SandboxTest;

TEST_F(OpsTest, ArgumentCodesLockWaitsRebootRefusalAndFailedSteps) {
    restore_files();
    // d is protected (mode R), p is plain (mode C).
    ASSERT_EQ(register_items("m", {item_cfg("d", JX_PROTECT_R), item_cfg("p", 1)}), 0);
    JxItemCfg log_cfg = item_cfg("l", JX_PROTECT_C, 0, kLog.c_str());
    JxItemCfg extra = item_cfg("x", JX_PROTECT_R), bad_mode = item_cfg("b", 6),
              unnamed = item_cfg(nullptr, 1);
    const Handle data = open_handle("d", "a+"), plain = open_handle("p", "a+"),
                 logh(jx_fopen_log_file(&log_cfg, "a"), jx_fclose_log_file);
    ASSERT_TRUE(data && plain && logh);
    JxFile closed{};  // a handle whose stream is null
    std::unique_ptr<GKeyFile, void (*)(GKeyFile *)> key{g_key_file_new(), g_key_file_free};
    JxFile *h = data.get();
    const std::string kInvalid = "input para invalid: ";
    const std::tuple<Op, int32_t, std::vector<std::string>> rows[] = {
        {CALL(jx_set_module_name(nullptr)), JX_ERR_PARAM1, {kInvalid + "name."}},
        {CALL(jx_init(&extra, 0)),
         JX_ERR_PARAM2,
         {kInvalid + "count.", "jx_init_cfg failed: ret -3999999."}},
        {CALL(jx_init_cfg(&unnamed, 1, "m")), JX_ERR_PARAM1, {kInvalid + "cfg[0].short_name."}},
        {CALL(jx_fwrite(nullptr, 1, 1, h)), JX_ERR_PARAM1, {"invalid input para: ptr is NULL."}},
        {CALL(jx_fwrite("x", 1, 1, &closed)), JX_ERR_PARAM4, {kNullStream}},
        {CALL(jx_sync_privilege(kLog.c_str(), "")), JX_ERR_PARAM2, {}},
        {CALL(jx_clear_module_file("d", nullptr)), JX_ERR_PARAM2, {kInvalid + "module_name."}},
        {CALL(jx_clear_file(nullptr)), JX_ERR_PARAM1, {kInvalid + "short_name."}},
        {CALL(jx_clear_log_file(nullptr)), JX_ERR_PARAM1, {kInvalid + "descriptor."}},
        {CALL(jx_fputc('x', &closed)), JX_ERR_PARAM2, {kInvalid + "stream."}},
        {CALL(jx_insert(nullptr, 1, 0, h)), JX_ERR_PARAM1, {kInvalid + "data."}},
        {CALL(jx_insert("x", 0, 0, nullptr)), JX_ERR_PARAM4, {kInvalid + "stream."}},
        {CALL(jx_delete(1, 0, &closed)), JX_ERR_PARAM3, {kInvalid + "stream."}},
        {CALL(jx_modify(nullptr, 1, 0, 1, h)), JX_ERR_PARAM1, {kInvalid + "data."}},
        {CALL(jx_modify("x", 0, 0, 1, h)), JX_ERR_PARAM2, {}},
        {CALL(jx_modify("x", 1, 3, 1, h)), JX_ERR_PARAM3, {}},
        {CALL(jx_modify("x", 1, 0, 0, h)), JX_ERR_PARAM4, {}},
        {CALL(jx_modify("x", 1, 0, 1, nullptr)), JX_ERR_PARAM5, {kInvalid + "stream."}},
        {CALL(jx_set_content(kLog.c_str(), nullptr, 1)), JX_ERR_PARAM2, {kInvalid + "buf."}},
        {CALL(jx_writeback_key_file(key.get(), "/opt/ulx/save/k")), JX_ERR_PARAM2, {}},
        {CALL(jx_writeback_key_file(key.get(), "/opt/ulx/pram/../k")),
         JX_ERR_PARAM2,
         {"k refused: the path leads out of /opt/ulx/pram/."}},
        {CALL(jx_close_key_file(nullptr, 0, 0)), JX_ERR_PARAM1, {kInvalid + "key."}},
        {CALL(jx_get_package_size("d", nullptr)), JX_ERR_PARAM2, {kInvalid + "size."}},
        {CALL(jx_recover_factory_cfg(nullptr)), JX_ERR_PARAM1, {kInvalid + "directory."}},
        {CALL(is_file_valid(kLog.c_str(), nullptr)), 0, {kInvalid + "checksum_path."}},
        // A descriptor that is not open ends a lock wait at once (the alarm catches a hang).
        {CALL(in_child([] { return alarm(20), jx_file_lock(INT_MAX), 7; })), 7, {}},
        {CALL(in_child([] { return alarm(20), !jx_open_key_file("/opt/ulx/pram/k", INT_MAX, 0); })),
         1,
         {}},
        {CALL(jx_fopen_file(nullptr, "m", "r") != nullptr), 0, {kInvalid + "short_name."}},
        {CALL(jx_fopen_file("d", "m", nullptr) != nullptr), 0, {kInvalid + "mode."}},
        {CALL(jx_fopen_log_file(nullptr, "a") != nullptr), 0, {kInvalid + "jx_info."}},
    };
    for (const auto &[call, code, lines] : rows) {
        SCOPED_TRACE(code);
        LogCapture capture;
        EXPECT_EQ(call(), code);
        EXPECT_EQ(capture.messages(), lines);
    }
    // Each call first runs while another process holds its lock, then again in
    // this process while a reboot is in progress. The file whose lock a call
    // waits for ("" for none), the call, its result, how it meets the reboot flag.
    const std::tuple<std::string, Op, int32_t, Guard> mutations[] = {
        {kData, CALL(write_text(data.get(), "abc")), 3, kLogged},
        {kLog, CALL(jx_fwrite_log("abc", 1, 3, logh.get())), 3, kLogged},
        {kData, CALL(jx_fputc('x', data.get())), 0, kIgnored},
        {kData, CALL(jx_insert("x", 1, 0, data.get())), 0, kSilent},
        {kData, CALL(jx_delete(1, 0, data.get())), 0, kSilent},
        {kData, CALL(jx_modify("x", 1, 0, 1, data.get())), 0, kSilent},
        {kData, CALL(jx_clear_file("d")), 0, kLogged},
        {kLog, CALL(jx_clear_log_file(&log_cfg)), 0, kLogged},
        {"", CALL(jx_writeback_key_file(key.get(), kKey.c_str())), 0, kLogged},
        {kData, CALL(reopen("r+")), 1, kIgnored},   // checks the file under its lock
        {kTable, CALL(reopen("r+")), 1, kIgnored},  // after its lookup in the table
        {kTable, CALL((jx_flush_file(data.get()), 0)), 0, kIgnored},
        {kTable, CALL(jx_recover_factory_cfg("/opt/ulx/save")), 0, kIgnored},
        {kTable, CALL(jx_init(&extra, 1)), 0, kLogged},
        {kExtra, CALL(jx_init_cfg(&extra, 1, "m")), 0, kLogged},
        {kKey, CALL(key_cycle()), 0, kIgnored},
        // Failures after the lock was taken release it all the same.
        {kTable, CALL(jx_init_cfg(&bad_mode, 1, "m")), JX_ERR_PROTECT_MODE, kLogged},
        {kKey, CALL((write_file(kKey, "not a key file"), key_cycle())), -1, kIgnored},
    };
    for (const auto &[locked, call, result, guard] : mutations) {
        SCOPED_TRACE(locked + " " + std::to_string(result));
        restore_files();
        if (!locked.empty())
            expect_clean(call_under_lock(locked, call), result);
        restore_files();
        const std::string before = files();
        write_file("/dev/shm/.Reboot.flag", "");
        LogCapture capture;
        EXPECT_EQ(call(), guard == kIgnored ? result : JX_ERR_REBOOTING);
        EXPECT_EQ(capture.contains("reboot processing, operation stopped."), guard == kLogged);
        EXPECT_TRUE(guard == kIgnored || files() == before);
        remove("/dev/shm/.Reboot.flag");
    }
    // A durable step fails: the code and line, the lock released, no descriptor
    // left, and what the file and its side file hold afterwards.
    using enum Call;
    const Target write{kData, CALL(write_text(h, "abc"))}, putc{kData, CALL(jx_fputc('x', h))},
        insert{kData, CALL(jx_insert("ab", 2, 3, h))}, clear{kData, CALL(jx_clear_file("d"))},
        add{kPlain, CALL(write_text(plain.get(), "abc"))},
        wipe{kLog, CALL(jx_clear_log_file(&log_cfg))};
    const Fault failures[] = {
        // Until the record and its folder are synced nothing changes; after that
        // the record stays and the next open finishes what the call began.
        {write, kWrite, 1, 0, "fwrite m_d failed.", "old", "old"},
        {write, kFsync, 1, 0, "fwrite m_d failed.", "old", "old"},
        {write, kFsync, 2, 0, "fwrite m_d failed.", "old", "old"},
        {write, kPwrite, 2, 0, "fwrite m_d failed.", "oldabc", "old"},
        {insert, kFsync, 3, JX_ERR_WRITE, "fwrite m_d failed.", "oldab", "old"},
        {add, kWrite, 1, 0, "fwrite m_p (sz 1 count 3) failed: wcnt 0 errno " EIO_P, "old", {}},
        {add, kFsync, 3, 0, "fwrite m_p (sz 1 count 3) failed: wcnt 0 errno " EIO_P, "oldabc", {}},
        {putc, kWrite, 1, JX_ERR_WRITE, "fputc(m_d) failed:  errno " EIO_P, "old", "old"},
        {clear, kWrite, 1, JX_ERR_WRITE, "ftruncate(m_d) failed.", "old", "old"},
        {clear, kFsync, 3, JX_ERR_WRITE, "ftruncate(m_d) failed.", "", "old"},
        {wipe, kWrite, 1, JX_ERR_WRITE, "ftruncate(l) failed.", "log\n", {}},
    };
    for (const auto &[target, seam, nth, code, line, content, side] : failures) {
        SCOPED_TRACE(line);
        restore_files();
        const Op faulted = [&] {
            LogCapture capture;
            IoFaults faults;
            faults.fail(seam, nth, EIO);
            const int32_t result = target.second();
            return capture.contains(line) ? result : INT32_MIN;  // the line did not come
        };
        expect_clean(call_under_lock(target.first, faulted), code);
        EXPECT_EQ(read_file(target.first), content);
        EXPECT_TRUE(!side || read_file(target.first + ".sha256") == side_file_text(side));
    }
}

}  // namespace
}  // namespace jx::test
