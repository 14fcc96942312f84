#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <tuple>

#include "support/builders.h"
#include "support/io_faults.h"
#include "support/log_capture.h"
#include "support/oracle.h"
#include "support/sandbox.h"

namespace jx::test {
namespace {

const std::string kKey = "/opt/ulx/pram/app_net.ini", kDurable = "/opt/ulx/save/app_net.ini";
const char kLock[] = "/opt/ulx/pram/app.lock";

// Asked from another process, which must not get the lock at once.
bool locked_elsewhere() {
    return in_child([] { return flock(open(kLock, O_RDONLY), LOCK_EX | LOCK_NB) != 0; }) == 1;
}

std::string addr_of(GKeyFile *key) {
    g_autofree gchar *value = key ? g_key_file_get_string(key, "net", "addr", nullptr) : nullptr;
    return value ? value : "<none>";
}

class KeyFileTest : public SandboxTest {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        ASSERT_EQ(register_items("app", {item_cfg("net.ini", JX_PROTECT_E)}), JX_OK);
        write_file(kDurable, "[net]\naddr=durable\n");
        write_file(kDurable + ".sha256", side_file_text("[net]\naddr=durable\n"));
        fd_ = open(kLock, O_RDWR | O_CREAT, 0600);
    }
    int fd_ = -1;
};

TEST_F(KeyFileTest, TheHoldKeepsTheLockUntilTheClose) {
    write_file(kKey, "[net]\naddr=ram\n");
    for (const int hold : {0, 1}) {
        GKeyFile *key = jx_open_key_file(kKey.c_str(), fd_, hold);
        EXPECT_EQ(addr_of(key), "ram");
        EXPECT_EQ(locked_elsewhere(), hold == 1);
        jx_file_lock(fd_);  // a close without hold leaves alone a lock it did not take
        EXPECT_EQ(jx_close_key_file(key, fd_, hold), 0);
        EXPECT_EQ(locked_elsewhere(), hold == 0);
        jx_file_unlock(fd_);
    }
    IoFaults faults;
    EXPECT_EQ(jx_open_key_file("/opt/ulx/pram_/app_net.ini", fd_, 1), nullptr);
    EXPECT_EQ(jx_open_key_file(kKey.c_str(), -1, 1), nullptr);
    EXPECT_EQ(faults.count(Call::kFlock), 0);
}

// Only a side file that disagrees sends the file to its durable copy; a failed
// repair or parse returns nothing and leaves the lock free.
TEST_F(KeyFileTest, OpenValidatesAndRepairsFromTheSideFile) {
    const std::tuple<std::string, std::string, const char *, const char *, const char *> rows[] = {
        {kKey, "[net]\naddr=ram\n", nullptr, "ram", ""},
        {kKey, "[net]\naddr=ram\n", "other", "durable", ""},
        {"/opt/ulx/pram/x.ini", "[net]\naddr=ram\n", "other", "<none>",
         "jx_file_recover_by_name(x.ini) failed: -3999991."},
        {kKey, "not a [key file\n", nullptr, "<none>",
         "g_key_file_load_from_file(app_net.ini) failed: "},
    };
    for (const auto &[path, content, side_of, addr, message] : rows) {
        SCOPED_TRACE(content);
        write_file(path, content);
        side_of ? write_file(path + ".sha256", side_file_text(side_of))
                : (void)unlink((path + ".sha256").c_str());
        LogCapture log;
        GKeyFile *key = jx_open_key_file(path.c_str(), fd_, 1);
        EXPECT_EQ(addr_of(key), addr);
        EXPECT_EQ(log.messages().empty() ? "" : log.messages().back().substr(0, strlen(message)),
                  message);
        EXPECT_EQ(locked_elsewhere(), key != nullptr);
        jx_close_key_file(key, fd_, 1);
    }
}

// Comments are not kept; a failed write-back keeps the old side file, so the
// next open rebuilds the file from its durable copy.
TEST_F(KeyFileTest, WriteBackRecordsExactlyTheSerialisedText) {
    write_file(kKey, "# dropped\n[net]\naddr=ram\n");
    GKeyFile *key = jx_open_key_file(kKey.c_str(), fd_, 1);
    g_key_file_set_string(key, "net", "addr", "new");
    EXPECT_EQ(jx_writeback_key_file(key, kKey.c_str()), JX_OK);
    EXPECT_EQ(read_file(kKey), "[net]\naddr=new\n");
    EXPECT_EQ(read_file(kKey + ".sha256"), side_file_text("[net]\naddr=new\n"));
    g_key_file_set_string(key, "net", "addr", "lost");
    IoFaults faults;
    faults.fail(Call::kFsync, 1, EIO);
    EXPECT_EQ(jx_writeback_key_file(key, kKey.c_str()), JX_ERR_WRITE);
    EXPECT_EQ(read_file(kKey + ".sha256"), side_file_text("[net]\naddr=new\n"));
    EXPECT_EQ(jx_close_key_file(key, fd_, 1), JX_OK);
    key = jx_open_key_file(kKey.c_str(), fd_, 0);
    EXPECT_EQ(addr_of(key), "durable");
    jx_close_key_file(key, fd_, 0);
}

TEST(KeyFileStringTest, AllowsPrintableAsciiOnly) {
    const std::pair<const char *, int> rows[] = {{"", 1},      {" ~az09!", 1}, {"a\tb", 0},
                                                 {"a\x1f", 0}, {"a\x7f", 0},   {"caf\xc8", 0},
                                                 {nullptr, 0}};
    for (const auto &[text, valid] : rows) {
        EXPECT_EQ(jx_key_file_string_valid(text), valid) << (text ? text : "null");
    }
}

}  // namespace
}  // namespace jx::test
