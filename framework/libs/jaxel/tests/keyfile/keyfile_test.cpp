#include <fcntl.h>

#include "support/support.h"

namespace jx::test {
namespace {

const std::string kKey = "/opt/ulx/pram/app_net.ini", kDurable = "/opt/ulx/save/app_net.ini";
const char kLock[] = "/opt/ulx/pram/app.lock";

std::string addr_of(GKeyFile *key) {
    g_autofree gchar *value = key ? g_key_file_get_string(key, "net", "addr", nullptr) : nullptr;
    return value ? value : "<none>";
}

// Only a side file that disagrees sends the file to its durable copy. The lock
// is kept from open to close with hold only, and never after a failed open.
// Comments are not kept; a failed write-back keeps the old side file, so the
// next open rebuilds the file from its durable copy.
TEST_F(SandboxTest, KeyFileOpenValidatesRepairsHoldsAndWritesBack) {
    ASSERT_EQ(register_items("app", {item_cfg("net.ini", JX_PROTECT_E)}), JX_OK);
    write_file(kDurable, "[net]\naddr=durable\n");
    const int fd = open(kLock, O_RDWR | O_CREAT, 0600);
    const std::tuple<std::string, std::string, const char *, int, const char *, const char *>
        rows[] = {
            {kKey, "[net]\naddr=ram\n", nullptr, 0, "ram", ""},
            {kKey, "[net]\naddr=ram\n", "other", 1, "durable", ""},
            {"/opt/ulx/pram/x.ini", "[net]\naddr=ram\n", "other", 1, "<none>",
             "jx_file_recover_by_name(x.ini) failed: -3999991."},
            {kKey, "not a [key file\n", nullptr, 1, "<none>",
             "g_key_file_load_from_file(app_net.ini) failed: "},
        };
    for (const auto &[path, content, side_of, hold, addr, message] : rows) {
        write_file(path, content);
        side_of ? write_file(path + ".sha256", side_file_text(side_of))
                : (void)unlink((path + ".sha256").c_str());
        LogCapture log;
        GKeyFile *key = jx_open_key_file(path.c_str(), fd, hold);
        EXPECT_EQ(addr_of(key), addr);
        EXPECT_EQ((log.messages().empty() ? "" : log.messages().back()).rfind(message, 0), 0u);
        EXPECT_EQ(!lock_free_now(kLock), key && hold);
        jx_close_key_file(key, fd, hold);
        EXPECT_TRUE(lock_free_now(kLock)) << content;
    }
    IoFaults faults;
    EXPECT_EQ(jx_open_key_file("/opt/ulx/pram_/app_net.ini", fd, 1), nullptr);
    EXPECT_EQ(faults.count(Call::kFlock), 0);
    write_file(kKey, "# dropped\n[net]\naddr=ram\n");
    GKeyFile *key = jx_open_key_file(kKey.c_str(), fd, 1);
    g_key_file_set_string(key, "net", "addr", "new");
    EXPECT_EQ(jx_writeback_key_file(key, kKey.c_str()), JX_OK);
    EXPECT_EQ(read_file(kKey), "[net]\naddr=new\n");
    EXPECT_EQ(read_file(kKey + ".sha256"), side_file_text("[net]\naddr=new\n"));
    g_key_file_set_string(key, "net", "addr", "lost");
    faults.fail(Call::kFsync, 1, EIO);
    EXPECT_EQ(jx_writeback_key_file(key, kKey.c_str()), JX_ERR_WRITE);
    // A new file's directory entry is synced before its side file is written.
    faults.fail(Call::kFsync, 2, EIO);
    EXPECT_EQ(jx_writeback_key_file(key, "/opt/ulx/pram/new.ini"), JX_ERR_WRITE);
    EXPECT_FALSE(exists("/opt/ulx/pram/new.ini.sha256"));
    EXPECT_EQ(jx_writeback_key_file(key, "/opt/ulx/pram/new.ini"), JX_OK);  // creates it
    EXPECT_EQ(read_file("/opt/ulx/pram/new.ini.sha256"), side_file_text("[net]\naddr=lost\n"));
    EXPECT_EQ(jx_close_key_file(key, fd, 1), JX_OK);
    // The failed write-back left the previous text in place, valid.
    EXPECT_EQ(addr_of(key = jx_open_key_file(kKey.c_str(), fd, 0)), "new");
    jx_close_key_file(key, fd, 0);
}

TEST(KeyFileStringTest, AllowsPrintableAsciiOnly) {
    for (const char *text : {"", " ~az09!"})
        EXPECT_EQ(jx_key_file_string_valid(text), 1) << text;
    for (const char *text :
         {"a\tb", "a\x1f", "a\x7f", "caf\xc8", static_cast<const char *>(nullptr)})
        EXPECT_EQ(jx_key_file_string_valid(text), 0) << (text ? text : "null");
}

}  // namespace
}  // namespace jx::test
