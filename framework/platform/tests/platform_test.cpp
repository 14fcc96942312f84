// The platform stand-ins through their public headers only.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <tuple>
#include <vector>

#include <glib.h>

#include "kel.h"
#include "pflash.h"
#include "safestr.h"

namespace {

using Text = const std::string &;

int run(std::vector<const char *> args) {
    args.push_back(nullptr);
    return kel_system_s(args[0], const_cast<char *const *>(args.data()));
}

// The driver's result, then the content it returned.
std::string flash_read(Text path) {
    void *h = pflash_open(path.c_str(), O_RDWR);
    char *buf = nullptr;
    uint32_t len = 0;
    const int rc = pflash_get_contents(h, &buf, &len);
    pflash_close(h);
    std::string text = std::to_string(rc) + ":" + (buf != nullptr ? std::string(buf, len) : "");
    g_free(buf);
    return text;
}

int flash_write(Text path, Text data) {
    void *h = pflash_open(path.c_str(), O_RDWR | O_CREAT);
    const int rc = pflash_write(h, data.data(), static_cast<uint32_t>(data.size()));
    pflash_close(h);
    return rc;
}

}  // namespace

// The vector reaches the program as it is: no shell, no PATH search; O_CLOEXEC stays behind.
TEST(KelSystem, ReturnsZeroOnlyForSuccessAndPassesExactlyItsVector) {
    const int hidden = open("/dev/null", O_RDONLY | O_CLOEXEC),
              shared = open("/dev/null", O_RDONLY);
    const std::string probe = "test -e /proc/self/fd/", hidden_fd = probe + std::to_string(hidden),
                      shared_fd = probe + std::to_string(shared);
    const std::pair<std::vector<const char *>, int> rows[] = {
        {{"/bin/true"}, 0},
        {{"/bin/sh", "-c", "exit 7"}, 7},
        {{"/bin/sh", "-c", "test \"$1\" = 'a b;c*' && test $# -eq 1", "sh", "a b;c*"}, 0},
        {{"/bin/sh", "-c", shared_fd.c_str()}, 0},
        {{"/bin/sh", "-c", hidden_fd.c_str()}, 1},
    };
    for (const auto &[args, rc] : rows) {
        EXPECT_EQ(run(args), rc) << args.back();
    }
    close(hidden);
    close(shared);
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
        {[](char *b) { return snprintf_s(b, 8, 3, "%s", "abcd"); }, -1, ""},
        {[](char *b) { return strncpy_s(b, 4, "xyzw", 3); }, 0, "xyz"},
        {[](char *b) { return strncpy_s(b, 4, "xyzw", 4); }, ERANGE, ""},
        {[](char *b) { return strncat_s(b, 5, "cdXX", 2); }, 0, "abcd"},
        {[](char *b) { return strncat_s(b, 4, "cd", 2); }, ERANGE, ""},
        {[](char *b) { return strncat_s(b, 2, "", 0); }, EINVAL, ""},  // not terminated within
        {[](char *b) { return memmove_s(b + 1, 7, b, 3); }, 0, "aab"},
        {[](char *b) { return memmove_s(b, 2, "xyz", 3); }, ERANGE, "ab"},
    };
    for (const auto &[call, rc, after] : rows) {
        char buf[8] = "ab";
        EXPECT_EQ(call(buf), rc) << after;
        EXPECT_STREQ(buf, after);
    }
}

// A write goes to the slot without the newest valid record, then to the file; a cut at any
// point leaves a record that recovery puts back.
TEST(Pflash, TornWritesAreRefusedAndRecoveredFromTheNewestValidRecord) {
    char dir[] = "/tmp/jaxel-pflash-XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    const std::string path = std::string(dir) + "/data", slot = std::string(dir) + "/.data.pf1",
                      old = "old", fresh("new\0content", 11);
    // The cut after "old" then "new" were written, the read before recovery, the content after.
    const std::tuple<void (*)(Text path, Text newest_slot), std::string, Text> rows[] = {
        {[](Text file, Text) { (void)truncate(file.c_str(), 4); }, "-3008:", fresh},
        {[](Text file, Text) { std::ofstream(file) << "new_content"; }, "-3008:", fresh},
        {[](Text file, Text) { (void)unlink(file.c_str()); }, "-3008:", fresh},
        {[](Text file, Text record) {  // the newest record torn before the file was written
             (void)truncate(record.c_str(), 40);
             std::ofstream(file) << "old";
         },
         "0:old", old},
    };
    for (const auto &[cut, read, recovered] : rows) {
        ASSERT_EQ(flash_write(path, old) | flash_write(path, fresh), 0);
        cut(path, slot);
        EXPECT_EQ(flash_read(path), read) << recovered;
        EXPECT_EQ(pflash_recover_file(path.c_str()), 0) << recovered;
        EXPECT_EQ(flash_read(path), "0:" + recovered);
    }
    std::ofstream(path + "2") << "placed by hand";
    EXPECT_EQ(pflash_recover_file((path + "2").c_str()), PFLASH_ERR_NOTHING_TO_RECOVER);
    std::filesystem::remove_all(dir);
}
