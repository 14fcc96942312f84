#include <atomic>
#include <chrono>
#include <fcntl.h>
#include <string>
#include <sys/file.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "frame/frame.h"
#include "jaxel.h"
#include "registry/registry.h"
#include "support/io_faults.h"
#include "support/lock_holder.h"
#include "support/log_capture.h"
#include "support/sandbox.h"

namespace {

using jx::test::Call;
using Record = jx::GPtr<jx::RegItem>;

constexpr char kAppA[] = "/opt/ulx/pram/app_a";

// Start-up opens the table once per process; the tests do the same by hand.
class RegLookupTest : public jx::test::SandboxTest {
protected:
    void open_table(const std::string &content) {
        jx::test::write_file(jx::kRegTablePath, content);
        const int fd = ::open(jx::kRegTablePath, O_RDONLY | O_CLOEXEC);
        ASSERT_GE(fd, 0);
        jx::set_reg_table_fd(fd);
    }

    static Record lookup(const char *name) { return Record(jx::get_reg_inter_info(name)); }

    // True when no one holds the table lock: a second descriptor can take it.
    static bool table_lock_free() {
        const int fd = ::open(jx::kRegTablePath, O_RDONLY);
        const bool free = flock(fd, LOCK_EX | LOCK_NB) == 0;
        ::close(fd);
        return free;
    }
};

TEST_F(RegLookupTest, AnREntryYieldsItsBackupAndSideFilePaths) {
    open_table(
        "[R1]\n"
        "dst=/opt/ulx/pram/app_a.bak\n"
        "src=/opt/ulx/pram/app_a\n"
        "bak=/opt/ulx/pram/app_a.bak\n"
        "crc=/opt/ulx/pram/app_a.bak.sha256\n"
        "bakcrc=/opt/ulx/pram/app_a.bak.sha256\n"
        "privilege=442381633092\n"
        "callback_obj=obj\n"
        "callback_method=method\n");
    const Record r = lookup(kAppA);
    ASSERT_NE(r, nullptr);
    EXPECT_EQ(r->protect_mode, 0u);
    EXPECT_STREQ(r->src, kAppA);
    EXPECT_STREQ(r->dst, "/opt/ulx/pram/app_a.bak");
    EXPECT_STREQ(r->bak, "/opt/ulx/pram/app_a.bak");
    EXPECT_STREQ(r->crc, "/opt/ulx/pram/app_a.bak.sha256");
    EXPECT_STREQ(r->bakcrc, "/opt/ulx/pram/app_a.bak.sha256");
    EXPECT_EQ(r->privilege, 442381633092ull);  // group 103, code 0x644: above 2^32
    EXPECT_EQ(r->callback_obj, nullptr);
    EXPECT_EQ(r->callback_method, nullptr);
}

TEST_F(RegLookupTest, TheFirstCharacterOfTheGroupNameGivesTheMode) {
    open_table(
        "[Q3]\nsrc=/opt/ulx/pram/q\ndst=/opt/ulx/save/from_q\n"
        "[C9]\ndst=/opt/ulx/save/q\nsrc=/opt/ulx/pram/q\n"
        "[Sx]\nsrc=/opt/ulx/pram/s\n"
        "[E4]\ndst=/opt/ulx/save/first\nsrc=/opt/ulx/pram/dup\n"
        "[S5]\ndst=/opt/ulx/save/second\nsrc=/opt/ulx/pram/dup\n"
        "[R6]\nsrc=/opt/ulx/pram/r\n[C7]\nsrc=/opt/ulx/pram/c\n[E8]\nsrc=/opt/ulx/pram/e\n"
        "[S10]\nsrc=/opt/ulx/pram/s2\n[P11]\nsrc=/opt/ulx/pram/p\n[F12]\nsrc=/opt/ulx/f\n"
        "[X13]\nsrc=/opt/ulx/pram/x\n[e14]\nsrc=/opt/ulx/pram/lower\n");

    const Record q = lookup("/opt/ulx/pram/q");
    ASSERT_NE(q, nullptr);
    EXPECT_EQ(q->protect_mode, 1u);
    EXPECT_STREQ(q->dst, "/opt/ulx/save/q");

    const Record s = lookup("/opt/ulx/pram/s");
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(s->protect_mode, 3u);

    const Record dup = lookup("/opt/ulx/pram/dup");
    ASSERT_NE(dup, nullptr);
    EXPECT_EQ(dup->protect_mode, 2u);
    EXPECT_STREQ(dup->dst, "/opt/ulx/save/first");

    const std::vector<std::pair<const char *, ProtectMode>> modes = {
        {"/opt/ulx/pram/r", 0},  {"/opt/ulx/pram/c", 1}, {"/opt/ulx/pram/e", 2},
        {"/opt/ulx/pram/s2", 3}, {"/opt/ulx/pram/p", 4}, {"/opt/ulx/f", 5},
    };
    for (const auto &[path, mode] : modes) {
        const Record r = lookup(path);
        ASSERT_NE(r, nullptr) << path;
        EXPECT_EQ(r->protect_mode, mode) << path;
    }
    EXPECT_EQ(lookup("/opt/ulx/pram/x"), nullptr);
    EXPECT_EQ(lookup("/opt/ulx/pram/lower"), nullptr);
}

TEST_F(RegLookupTest, KeysAGroupLacksStayEmptyAndPrivilegeZero) {
    open_table(
        "[C1]\ndst=/opt/ulx/save/app_c\nsrc=/opt/ulx/pram/app_c\nprivilege=420\n"
        "[P2]\ndst=/opt/ulx/pflash/app_p\nsrc=/opt/ulx/pram/app_p\n"
        "[F3]\nsrc=/etc/app.conf\nprivilege=not-a-number\n");

    const Record c = lookup("/opt/ulx/pram/app_c");
    ASSERT_NE(c, nullptr);
    EXPECT_STREQ(c->dst, "/opt/ulx/save/app_c");
    EXPECT_EQ(c->privilege, 420u);

    const Record p = lookup("/opt/ulx/pram/app_p");
    ASSERT_NE(p, nullptr);
    EXPECT_STREQ(p->dst, "/opt/ulx/pflash/app_p");
    EXPECT_EQ(p->privilege, 0u);

    const Record f = lookup("/etc/app.conf");
    ASSERT_NE(f, nullptr);
    EXPECT_STREQ(f->dst, "");
    EXPECT_EQ(f->privilege, 0u);

    for (const jx::RegItem *r : {c.get(), p.get(), f.get()}) {
        EXPECT_STREQ(r->bak, "");
        EXPECT_STREQ(r->crc, "");
        EXPECT_STREQ(r->bakcrc, "");
    }
}

TEST_F(RegLookupTest, PathsMatchExactlyAndLongValuesAreCut) {
    const std::string long_dst = "/opt/ulx/save/" + std::string(300, 'd');
    open_table("[E1]\nsrc=/opt/ulx/pram/app_a\ndst=" + long_dst + "\n");

    jx::test::LogCapture log;
    EXPECT_EQ(lookup("/opt/ulx/pram/app_a/"), nullptr);
    EXPECT_EQ(lookup("/opt/ulx/pram//app_a"), nullptr);
    EXPECT_EQ(lookup("/opt/ulx/pram/APP_A"), nullptr);
    EXPECT_EQ(lookup("/opt/ulx/pram/app"), nullptr);
    EXPECT_EQ(lookup(nullptr), nullptr);
    EXPECT_TRUE(log.messages().empty());

    const Record r = lookup(kAppA);
    ASSERT_NE(r, nullptr);
    EXPECT_EQ(std::string(r->dst), long_dst.substr(0, 255));
}

TEST_F(RegLookupTest, BeforeStartUpNothingIsReadOrLocked) {
    jx::test::write_file(jx::kRegTablePath, "[E1]\nsrc=/opt/ulx/pram/app_a\n");
    jx::test::LogCapture log;
    jx::test::IoFaults faults;
    EXPECT_EQ(lookup(kAppA), nullptr);
    EXPECT_EQ(log.messages(), std::vector<std::string>{"fsync_reg.ini not init."});
    EXPECT_EQ(faults.count(Call::kFlock), 0);
}

TEST_F(RegLookupTest, FailuresAndMissesReturnNullAndReleaseTheLock) {
    open_table("");
    jx::test::LogCapture log;
    EXPECT_EQ(lookup(kAppA), nullptr);
    EXPECT_TRUE(log.messages().empty());
    EXPECT_TRUE(table_lock_free());

    jx::test::write_file(jx::kRegTablePath, "[E1]\nsrc=/opt/ulx/pram/other\n");
    EXPECT_EQ(lookup(kAppA), nullptr);
    EXPECT_TRUE(log.messages().empty());
    EXPECT_TRUE(table_lock_free());

    const char *garbage = "[E1]\nsrc=/opt/ulx/pram/app_a\nnot a key file line\n";
    jx::test::write_file(jx::kRegTablePath, garbage);
    std::string why;
    {
        const jx::KeyFilePtr key(g_key_file_new());
        GError *raw = nullptr;
        ASSERT_FALSE(g_key_file_load_from_data(key.get(), garbage, static_cast<gsize>(-1),
                                               G_KEY_FILE_NONE, &raw));
        why = jx::GErrorPtr(raw)->message;
    }
    EXPECT_EQ(lookup(kAppA), nullptr);
    EXPECT_EQ(log.messages(), (std::vector<std::string>{
                                  "g_key_file_load_from_file(fsync_reg.ini) failed: " + why + ".",
                                  "jx_open_key_file(fsync_reg.ini) failed."}));
    EXPECT_TRUE(table_lock_free());
}

TEST_F(RegLookupTest, EveryLookupReadsTheTableAnew) {
    open_table("[E1]\nsrc=/opt/ulx/pram/other\n");
    EXPECT_EQ(lookup(kAppA), nullptr);
    jx::test::write_file(jx::kRegTablePath,
                         "[E1]\nsrc=/opt/ulx/pram/other\n[C2]\nsrc=/opt/ulx/pram/app_a\n");
    const Record r = lookup(kAppA);
    ASSERT_NE(r, nullptr);
    EXPECT_EQ(r->protect_mode, 1u);
}

// Another process holds the table lock; the lookup polls until it lets go.
TEST_F(RegLookupTest, WaitsWhileAnotherProcessHoldsTheTable) {
    open_table("[E1]\nsrc=/opt/ulx/pram/app_a\n");
    jx::test::LockHolder holder(jx::kRegTablePath);
    ASSERT_TRUE(holder.held());

    jx::test::IoFaults faults;
    std::atomic<bool> done{false};
    Record found;
    std::thread reader([&] {
        found = lookup(kAppA);
        done = true;
    });
    while (faults.count(Call::kDelay) == 0 && !done) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    EXPECT_FALSE(done);
    ASSERT_TRUE(holder.release());
    reader.join();
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found->protect_mode, 2u);
    EXPECT_TRUE(table_lock_free());
}

TEST_F(RegLookupTest, LookingUpTheTableItselfTakesNoLock) {
    open_table("[F1]\nsrc=/opt/ulx/pram/fsync_reg.ini\n[E2]\nsrc=/opt/ulx/pram/app_a\n");
    jx::test::IoFaults faults;
    const Record table = lookup(jx::kRegTablePath);
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(table->protect_mode, 5u);
    EXPECT_EQ(faults.count(Call::kFlock), 0);

    EXPECT_NE(lookup(kAppA), nullptr);
    EXPECT_EQ(faults.count(Call::kFlock), 2);
}

}  // namespace
