#include <gtest/gtest.h>

#include <cstdarg>
#include <cstring>

#include "safestr.h"

namespace {

int format_v(char *dest, size_t dest_max, const char *fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    const int rc = vsnprintf_s(dest, dest_max, dest_max, fmt, ap);
    va_end(ap);
    return rc;
}

}  // namespace

TEST(SafeStrFormat, FitsUpToOneLessThanTheBuffer) {
    char buf[8];
    EXPECT_EQ(snprintf_s(buf, sizeof buf, sizeof buf, "%s", "1234567"), 7);
    EXPECT_STREQ(buf, "1234567");
    EXPECT_LT(snprintf_s(buf, sizeof buf, sizeof buf, "%d", 12345678), 0);
    EXPECT_STREQ(buf, "");
    EXPECT_EQ(snprintf_s(buf, sizeof buf, 3, "%s", "abc"), 3);
    EXPECT_LT(snprintf_s(buf, sizeof buf, 3, "%s", "abcd"), 0);
    EXPECT_STREQ(buf, "");
    EXPECT_EQ(format_v(buf, sizeof buf, "%c%c", 'o', 'k'), 2);
    EXPECT_STREQ(buf, "ok");
}

TEST(SafeStrFormat, RejectsUnusableArguments) {
    char buf[4] = "xyz";
    EXPECT_LT(snprintf_s(nullptr, 4, 4, "%s", "a"), 0);
    // cppcheck-suppress nullPointer ; the null argument is the case under test
    EXPECT_LT(snprintf_s(buf, 0, 0, "%s", "a"), 0);
    EXPECT_STREQ(buf, "xyz") << "dest_max 0 must not be written";
    EXPECT_LT(format_v(buf, sizeof buf, nullptr), 0);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_STREQ(buf, "");
}

TEST(SafeStrCopy, CopiesBoundedOrEmptiesTheDestination) {
    char buf[4] = "zzz";
    EXPECT_EQ(strncpy_s(buf, sizeof buf, "abc", 3), 0);
    EXPECT_STREQ(buf, "abc");
    EXPECT_EQ(strncpy_s(buf, sizeof buf, "abcdef", 2), 0);
    EXPECT_STREQ(buf, "ab");
    EXPECT_EQ(strncpy_s(buf, sizeof buf, "abcd", 4), ERANGE);
    EXPECT_STREQ(buf, "");
    // cppcheck-suppress nullPointer ; the null argument is the case under test
    EXPECT_EQ(strncpy_s(buf, sizeof buf, nullptr, 1), EINVAL);
    // cppcheck-suppress nullPointer ; the null argument is the case under test
    EXPECT_EQ(strncpy_s(nullptr, 4, "a", 1), EINVAL);
    EXPECT_EQ(strncpy_s(buf, 0, "a", 1), EINVAL);
}

TEST(SafeStrConcat, AppendsBoundedOrEmptiesTheDestination) {
    char buf[6] = "ab";
    EXPECT_EQ(strncat_s(buf, sizeof buf, "cdXX", 2), 0);
    EXPECT_STREQ(buf, "abcd");
    EXPECT_EQ(strncat_s(buf, sizeof buf, "e", 5), 0);
    EXPECT_STREQ(buf, "abcde");
    EXPECT_EQ(strncat_s(buf, sizeof buf, "f", 1), ERANGE);
    EXPECT_STREQ(buf, "");

    char unterminated[3] = {'a', 'b', 'c'};
    EXPECT_EQ(strncat_s(unterminated, sizeof unterminated, "", 0), EINVAL);
    // cppcheck-suppress nullPointer ; the null argument is the case under test
    EXPECT_EQ(strncat_s(buf, sizeof buf, nullptr, 1), EINVAL);
}

TEST(SafeStrMemory, MovesAndFillsWithinBounds) {
    char buf[8] = "abcdefg";
    EXPECT_EQ(memmove_s(buf + 1, sizeof buf - 1, buf, 4), 0);
    EXPECT_STREQ(buf, "aabcdfg");
    EXPECT_EQ(memmove_s(buf, 2, "xyz", 3), ERANGE);
    EXPECT_STREQ(buf, "aabcdfg") << "nothing copied on overflow";
    EXPECT_EQ(memmove_s(nullptr, 1, "x", 1), EINVAL);
    EXPECT_EQ(memmove_s(buf, 1, nullptr, 1), EINVAL);

    EXPECT_EQ(memset_s(buf, 3, '-', 3), 0);
    EXPECT_STREQ(buf, "---cdfg");
    EXPECT_EQ(memset_s(buf, 5, '+', 6), ERANGE);
    EXPECT_STREQ(buf, "+++++fg") << "fills dest_max bytes even on overflow";
    // cppcheck-suppress nullPointer ; the null argument is the case under test
    EXPECT_EQ(memset_s(nullptr, 1, 0, 1), EINVAL);
}
