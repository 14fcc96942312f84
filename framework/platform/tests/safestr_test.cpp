#include <gtest/gtest.h>

#include "safestr.h"

namespace {

struct BoundRow {
    int (*call)(char *buf);  // buf holds "ab" and has room for 8 bytes
    int rc;
    const char *after;
};

// Every call site passes the destination's size; a text that does not fit leaves "".
const BoundRow kRows[] = {
    {[](char *b) { return snprintf_s(b, 8, 8, "%s", "1234567"); }, 7, "1234567"},
    {[](char *b) { return snprintf_s(b, 8, 8, "%d", 12345678); }, -1, ""},
    {[](char *b) { return snprintf_s(b, 8, 3, "%s", "abcd"); }, -1, ""},
    {[](char *b) { return snprintf_s(b, 0, 0, "%s", "x"); }, -1, "ab"},
    {[](char *b) { return strncpy_s(b, 4, "xyz", 3); }, 0, "xyz"},
    {[](char *b) { return strncpy_s(b, 4, "xyzw", 2); }, 0, "xy"},
    {[](char *b) { return strncpy_s(b, 4, "xyzw", 4); }, ERANGE, ""},
    {[](char *b) { return strncat_s(b, 5, "cdXX", 2); }, 0, "abcd"},
    {[](char *b) { return strncat_s(b, 4, "cd", 2); }, ERANGE, ""},
    {[](char *b) { return strncat_s(b, 2, "", 0); }, EINVAL, ""},  // not terminated within
    {[](char *b) { return memmove_s(b + 1, 7, b, 3); }, 0, "aab"},
    {[](char *b) { return memmove_s(b, 2, "xyz", 3); }, ERANGE, "ab"},
    {[](char *b) { return memset_s(b, 1, '-', 2); }, ERANGE, "-b"},
};

}  // namespace

TEST(SafeStr, BoundsAreExactAndFailuresLeaveTheDocumentedDestination) {
    for (size_t i = 0; i < std::size(kRows); ++i) {
        char buf[8] = "ab";
        EXPECT_EQ(kRows[i].call(buf), kRows[i].rc) << "row " << i;
        EXPECT_STREQ(buf, kRows[i].after) << "row " << i;
    }
}
