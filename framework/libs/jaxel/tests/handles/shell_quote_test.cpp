#include <string>

#include <gtest/gtest.h>

#include "frame/shell.h"
#include "handles/handle_fixture.h"

namespace {

std::string quoted(const char *arg) {
    char out[jx::kShellCommandSize];
    EXPECT_TRUE(jx::shell_quote(arg, out, sizeof out)) << arg;
    return out;
}

TEST(ShellQuoteTest, OnlyOrdinaryNamesStayUnquoted) {
    for (const char *name : {"app_net.conf", "a-b+c,d:e@f%g=h/i", "/opt/ulx/pram/"}) {
        EXPECT_EQ(quoted(name), name);
    }
    // Whatever else a name holds reaches the program exactly as it was.
    for (const char *name :
         {"a b", "it's", "x;touch y", "$HOME", "`id`", "*", "a\nb", "\\", "~", ""}) {
        const std::string word = quoted(name);
        EXPECT_EQ(word.front(), '\'') << name;
        EXPECT_EQ(jx::test::run_output({"/bin/sh", "-c", ("printf %s " + word).c_str()}), name);
    }
    EXPECT_EQ(quoted("it's"), "'it'\\''s'");
}

TEST(ShellQuoteTest, RefusesWhatDoesNotFit) {
    char out[6] = "junk";
    EXPECT_TRUE(jx::shell_quote("abcde", out, sizeof out));
    EXPECT_FALSE(jx::shell_quote("abcdef", out, sizeof out));
    EXPECT_STREQ(out, "");
    EXPECT_FALSE(jx::shell_quote("a b c", out, sizeof out));  // seven once quoted
    EXPECT_FALSE(jx::shell_quote(nullptr, out, sizeof out));
    EXPECT_FALSE(jx::ShellArg(std::string(jx::kShellCommandSize, 'q').c_str()).fits());
}

}  // namespace
