#include <gtest/gtest.h>

#include <tuple>

#include "safestr.h"

// Each call gets a buffer of 8 bytes holding "ab"; a text that does not fit leaves "".
TEST(SafeStr, BoundsAreExactAndFailuresLeaveTheDocumentedDestination) {
    const std::tuple<int (*)(char *), int, const char *> rows[] = {
        {[](char *b) { return snprintf_s(b, 8, 8, "%s", "1234567"); }, 7, "1234567"},
        {[](char *b) { return snprintf_s(b, 8, 8, "%d", 12345678); }, -1, ""},
        {[](char *b) { return snprintf_s(b, 8, 3, "%s", "abcd"); }, -1, ""},
        {[](char *b) { return strncpy_s(b, 4, "xyzw", 2); }, 0, "xy"},
        {[](char *b) { return strncpy_s(b, 4, "xyzw", 4); }, ERANGE, ""},
        {[](char *b) { return strncat_s(b, 5, "cdXX", 2); }, 0, "abcd"},
        {[](char *b) { return strncat_s(b, 4, "cd", 2); }, ERANGE, ""},
        {[](char *b) { return strncat_s(b, 2, "", 0); }, EINVAL, ""},  // not terminated within
        {[](char *b) { return memmove_s(b + 1, 7, b, 3); }, 0, "aab"},
        {[](char *b) { return memmove_s(b, 2, "xyz", 3); }, ERANGE, "ab"},
        {[](char *b) { return memset_s(b, 1, '-', 2); }, ERANGE, "-b"},
    };
    for (const auto &[call, rc, after] : rows) {
        char buf[8] = "ab";
        EXPECT_EQ(call(buf), rc) << after;
        EXPECT_STREQ(buf, after);
    }
}
