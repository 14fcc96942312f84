#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "frame/frame.h"
#include "integrity/digest.h"
#include "jaxel.h"
#include "support/io_faults.h"
#include "support/log_capture.h"
#include "support/registration.h"
#include "support/sandbox.h"

namespace {

using jx::test::Call;
using jx::test::read_file;
using jx::test::write_file;
using KeyFileTest = jx::test::SandboxTest;

const char kKeyPath[] = "/opt/ulx/pram/app_settings.ini";
const std::string kSidePath = std::string(kKeyPath) + ".sha256";
const char kLockPath[] = "/opt/ulx/pram/app_settings.lock";
const char kKeyText[] = "[net]\naddr=10.0.0.1\n";

std::string checksum_of(const std::string &content) {
    char digest[jx::kSha256HexSize];
    jx::sha256_hex(content.data(), content.size(), digest);
    return std::string(digest, sizeof digest);
}

std::string addr_of(GKeyFile *key) {
    gchar *value = g_key_file_get_string(key, "net", "addr", nullptr);
    std::string text = value != nullptr ? value : "<none>";
    g_free(value);
    return text;
}

bool locked_elsewhere() {
    const int probe = open(kLockPath, O_RDONLY);
    const bool locked = flock(probe, LOCK_EX | LOCK_NB) != 0;
    close(probe);
    return locked;
}

int open_lock_file() {
    jx::test::open_reg_table();
    write_file(kLockPath, "");
    return open(kLockPath, O_RDWR);
}

int g_waiting_pipe = -1;
int g_delays = 0;

// Tells the parent, once, that this process found the lock taken.
void report_delay(uint32_t units) {
    if (g_delays++ == 0 && write(g_waiting_pipe, "w", 1) != 1) {
        _exit(2);
    }
    jx::real_io().delay(units);
}

TEST_F(KeyFileTest, HoldOneKeepsAnotherProcessWaitingUntilClose) {
    write_file(kKeyPath, kKeyText);
    const int fd = open_lock_file();
    GKeyFile *key = jx_open_key_file(kKeyPath, fd, 1);
    ASSERT_NE(key, nullptr);
    int waiting[2];
    int done[2];
    ASSERT_EQ(pipe(waiting) | pipe(done), 0);
    const pid_t child = fork();
    if (child == 0) {
        g_waiting_pipe = waiting[1];
        jx::io().delay = report_delay;
        const int own = open(kLockPath, O_RDWR);
        GKeyFile *mine = jx_open_key_file(kKeyPath, own, 1);
        const bool ok = mine != nullptr && write(done[1], &g_delays, sizeof g_delays) > 0;
        _exit(ok && jx_close_key_file(mine, own, 1) == 0 ? 0 : 1);
    }
    close(waiting[1]);
    close(done[1]);

    char c = 0;
    ASSERT_EQ(read(waiting[0], &c, 1), 1);
    pollfd finished{done[0], POLLIN, 0};
    EXPECT_EQ(poll(&finished, 1, 0), 0);
    EXPECT_EQ(jx_close_key_file(key, fd, 1), 0);
    int delays = 0;
    ASSERT_EQ(read(done[0], &delays, sizeof delays), static_cast<ssize_t>(sizeof delays));
    EXPECT_GT(delays, 0);
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

TEST_F(KeyFileTest, HoldZeroAndRefusedOpensLeaveTheLockAlone) {
    write_file(kKeyPath, kKeyText);
    write_file("/opt/ulx/save/app_settings.ini", kKeyText);
    const int fd = open_lock_file();
    GKeyFile *key = jx_open_key_file(kKeyPath, fd, 0);
    ASSERT_NE(key, nullptr);
    EXPECT_EQ(addr_of(key), "10.0.0.1");
    EXPECT_FALSE(locked_elsewhere());

    jx_file_lock(fd);
    EXPECT_EQ(jx_close_key_file(key, fd, 0), 0);
    EXPECT_EQ(jx_close_key_file(nullptr, fd, 1), JX_ERR_PARAM1);
    EXPECT_TRUE(locked_elsewhere());
    jx_file_unlock(fd);

    jx::test::IoFaults faults;
    EXPECT_EQ(jx_open_key_file("/opt/ulx/save/app_settings.ini", fd, 1), nullptr);
    EXPECT_EQ(jx_open_key_file(kKeyPath, -1, 1), nullptr);
    EXPECT_EQ(faults.count(Call::kFlock), 0);
}

// Only a side file that disagrees sends the file to recovery; without one the
// file is taken as it is even when its durable copy differs.
TEST_F(KeyFileTest, OnlyADisagreeingSideFileRebuildsFromTheDurableCopy) {
    JxItemCfg cfg{};
    cfg.short_name = "net.ini";
    cfg.protect_mode = JX_PROTECT_E;
    const std::string src = jx::test::register_for_test("app", cfg);
    const std::string durable = "[net]\naddr=10.0.0.2\n";
    write_file("/opt/ulx/save/app_net.ini", durable);
    write_file(src, kKeyText);
    const int fd = open_lock_file();

    GKeyFile *key = jx_open_key_file(src.c_str(), fd, 0);
    EXPECT_EQ(addr_of(key), "10.0.0.1");
    EXPECT_EQ(jx_close_key_file(key, fd, 0), 0);

    write_file(src + ".sha256", checksum_of("[net]\naddr=10.9.9.9\n"));
    key = jx_open_key_file(src.c_str(), fd, 1);
    EXPECT_EQ(addr_of(key), "10.0.0.2");
    EXPECT_EQ(read_file(src), durable);
    EXPECT_EQ(read_file(src + ".sha256"), checksum_of(durable));
    EXPECT_TRUE(locked_elsewhere());
    EXPECT_EQ(jx_close_key_file(key, fd, 1), 0);
    EXPECT_FALSE(locked_elsewhere());
}

TEST_F(KeyFileTest, FailedOpenUnderHoldReleasesTheLock) {
    const int fd = open_lock_file();
    jx::test::LogCapture log;
    write_file(kKeyPath, kKeyText);
    write_file(kSidePath, checksum_of("other"));
    EXPECT_EQ(jx_open_key_file(kKeyPath, fd, 1), nullptr);
    EXPECT_TRUE(log.contains("(app_settings.ini) not found in fsync_reg.ini."));
    EXPECT_EQ(log.messages().back(), "jx_file_recover_by_name(app_settings.ini) failed: -3999991.");
    EXPECT_FALSE(locked_elsewhere());

    log.clear();
    unlink(kSidePath.c_str());
    write_file(kKeyPath, "not a [key file\n");
    EXPECT_EQ(jx_open_key_file(kKeyPath, fd, 1), nullptr);
    ASSERT_EQ(log.messages().size(), 1u);
    EXPECT_EQ(log.messages()[0].rfind("g_key_file_load_from_file(app_settings.ini) failed: ", 0),
              0u);
    EXPECT_FALSE(locked_elsewhere());
}

TEST_F(KeyFileTest, WriteBackRecordsExactlyTheSerialisedText) {
    write_file(kKeyPath, "# dropped\n" + std::string(kKeyText));
    const int fd = open_lock_file();
    GKeyFile *key = jx_open_key_file(kKeyPath, fd, 1);
    g_key_file_set_string(key, "net", "addr", "10.0.0.7");
    gsize length = 0;
    gchar *text = g_key_file_to_data(key, &length, nullptr);
    const std::string expected(text, length);
    g_free(text);

    EXPECT_EQ(jx_writeback_key_file(key, kKeyPath), 0);
    EXPECT_EQ(read_file(kKeyPath), expected);
    EXPECT_EQ(read_file(kSidePath), checksum_of(expected));
    EXPECT_EQ(is_ram_file_valid(kKeyPath), 1);
    EXPECT_EQ(jx_close_key_file(key, fd, 1), 0);
}

TEST_F(KeyFileTest, WriteBackRefusesBadTargetsAndReboot) {
    GKeyFile *key = g_key_file_new();
    jx::test::LogCapture log;
    EXPECT_EQ(jx_writeback_key_file(key, "/opt/ulx/save/app_settings.ini"), JX_ERR_PARAM2);
    EXPECT_FALSE(jx::test::exists("/opt/ulx/save/app_settings.ini"));
    EXPECT_TRUE(log.messages().empty());

    write_file(kKeyPath, kKeyText);
    write_file(jx::kRebootFlagPath, "");
    EXPECT_EQ(jx_writeback_key_file(key, kKeyPath), JX_ERR_REBOOTING);
    EXPECT_EQ(log.messages(), std::vector<std::string>{"reboot processing, operation stopped."});
    EXPECT_EQ(read_file(kKeyPath), kKeyText);
    g_key_file_free(key);
}

// A failed write-back keeps the old side file, so the next open repairs the file.
TEST_F(KeyFileTest, WriteBackReportsEachFailingStep) {
    GKeyFile *key = g_key_file_new();
    g_key_file_set_string(key, "net", "addr", "10.0.0.7");
    const struct {
        Call call;
        int nth;
        int32_t result;
        std::string message;
    } cases[] = {
        {Call::kFopen, 1, JX_ERR_OPEN, ""},
        {Call::kFwrite, 1, JX_ERR_WRITE,
         "g_fprintf(app_settings.ini) failed: return length(0), text length(20)."},
        {Call::kFflush, 1, JX_ERR_WRITE,
         "fflush(app_settings.ini) failed: ret [-1] errno [5: Input/output error]."},
        {Call::kFsync, 1, JX_ERR_WRITE,
         "fsync(app_settings.ini) failed: ret [-1] errno [5: Input/output error]."},
        {Call::kFopen, 2, JX_ERR_OPEN, "__ram_check_sum(app_settings.ini) failed: -3999989."},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.message);
        write_file(kKeyPath, kKeyText);
        write_file(kSidePath, checksum_of(kKeyText));
        jx::test::IoFaults faults;
        jx::test::LogCapture log;
        faults.fail(c.call, c.nth, EIO);
        EXPECT_EQ(jx_writeback_key_file(key, kKeyPath), c.result);
        EXPECT_EQ(log.messages().empty() ? "" : log.messages().back(), c.message);
        EXPECT_EQ(read_file(kSidePath), checksum_of(kKeyText));
    }
    g_key_file_free(key);
}

TEST(KeyFileStringTest, AllowsPrintableAsciiOnly) {
    EXPECT_EQ(jx_key_file_string_valid(""), 1);
    EXPECT_EQ(jx_key_file_string_valid(" ~az09!"), 1);
    for (const char *bad :
         {"a\tb", "a\x1f", "a\x7f", "caf\xc8", static_cast<const char *>(nullptr)}) {
        EXPECT_EQ(jx_key_file_string_valid(bad), 0);
    }
}

}  // namespace
