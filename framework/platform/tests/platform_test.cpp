// The platform stand-ins through their public headers only.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <glib.h>

#include "kel.h"
#include "pflash.h"
#include "safestr.h"

namespace {

int run(std::vector<const char *> args) {
    args.push_back(nullptr);
    return kel_system_s(args[0], const_cast<char *const *>(args.data()));
}

int g_fsyncs = 0;

}  // namespace

// Every fsync of the process is counted on its way to the kernel.
extern "C" int fsync(int fd) {
    ++g_fsyncs;
    return static_cast<int>(syscall(SYS_fsync, fd));
}

// The vector reaches the program as it is: no shell, no PATH search; O_CLOEXEC stays behind.
TEST(KelSystem, ReturnsZeroOnlyForSuccessAndPassesExactlyItsVector) {
    const int hidden = open("/dev/null", O_RDONLY | O_CLOEXEC), kept = open("/dev/null", O_RDONLY);
    const std::string probe = "test -e /proc/self/fd/", hidden_fd = probe + std::to_string(hidden),
                      kept_fd = probe + std::to_string(kept);
    const std::pair<std::vector<const char *>, int> rows[] = {
        {{"/bin/true"}, 0},
        {{"/bin/sh", "-c", "test \"$1\" = 'a b;c*' && test $# -eq 1", "sh", "a b;c*"}, 0},
        {{"/bin/sh", "-c", kept_fd.c_str()}, 0},
        {{"/bin/sh", "-c", hidden_fd.c_str()}, 1},
    };
    for (const auto &[args, rc] : rows)
        EXPECT_EQ(run(args), rc) << args.back();
    close(hidden);
    close(kept);
}

// Left out under qemu-user, where a program that cannot start shows as exit status 127.
TEST(KelSystem, ReportsHowTheProgramEnded) {
    EXPECT_EQ(run({"/nonexistent/program"}), -1);
    EXPECT_EQ(run({"true"}), -1);
}

// Each call gets a buffer of 8 bytes holding "ab"; a text that does not fit leaves "".
TEST(SafeStr, BoundsAreExactAndFailuresLeaveTheDocumentedDestination) {
    const std::tuple<int (*)(char *), int, const char *> rows[] = {
        {[](char *b) { return snprintf_s(b, 8, 8, "%s", "1234567"); }, 7, "1234567"},
        {[](char *b) { return snprintf_s(b, 8, 8, "%d", 12345678); }, -1, ""},
        {[](char *b) { return strncpy_s(b, 4, "xyzw", 4); }, ERANGE, ""},
        {[](char *b) { return strncat_s(b, 4, "cd", 2); }, ERANGE, ""},
        {[](char *b) { return memmove_s(b, 2, "xyz", 3); }, ERANGE, "ab"},
    };
    for (const auto &[call, rc, after] : rows) {
        char buf[8] = "ab";
        EXPECT_EQ(call(buf), rc) << after;
        EXPECT_STREQ(buf, after);
    }
}

// A write goes to the slot without the newest valid record, then to the file, so a cut at any
// point leaves a record that recovery puts back. Rows: the cut, whether reads must refuse.
TEST(Pflash, TornWritesAreRefusedAndRecoveredFromTheNewestValidRecord) {
    char dir[] = "/tmp/jaxel-pflash-XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    const std::string path = std::string(dir) + "/data", newest = std::string(dir) + "/.data.pf1";
    const std::pair<std::string, bool> rows[] = {
        {"truncate -s 2 " + path, true},
        {"rm " + path, true},
        // The newest record torn before the file was written: the previous content holds.
        {"sed -i s/new/neW/ " + newest + " && printf old >" + path, false},
    };
    for (const auto &[cut, refused] : rows) {
        void *h = pflash_open(path.c_str(), O_RDWR | O_CREAT);
        ASSERT_EQ(pflash_write(h, "old", 3) | pflash_write(h, "new\0", 4), 0);
        pflash_close(h);
        ASSERT_EQ(std::system(cut.c_str()), 0);
        h = pflash_open(path.c_str(), O_RDWR);
        char *buf = nullptr;
        uint32_t len = 0;
        EXPECT_EQ(pflash_get_contents(h, &buf, &len), refused ? PFLASH_ERR_DAMAGED : 0) << cut;
        g_free(buf);
        EXPECT_EQ(pflash_recover_file(path.c_str()) | pflash_get_contents(h, &buf, &len), 0);
        EXPECT_EQ(std::string(buf, len), refused ? std::string("new\0", 4) : "old") << cut;
        g_free(buf);
        pflash_close(h);
    }
    // Each record, each new directory entry, each repaired or confirmed file is synced.
    EXPECT_EQ(g_fsyncs, 19);
    EXPECT_EQ(std::system(("rm -r " + std::string(dir)).c_str()), 0);
}
