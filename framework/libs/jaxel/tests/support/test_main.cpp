#include <cstdio>
#include <string>

#include <gtest/gtest.h>

#include "support/sandbox.h"

int main(int argc, char **argv) {
    ::testing::InitGoogleTest(&argc, argv);
    std::string why;
    if (!jx::test::enter_sandbox(why)) {
        std::fprintf(stderr, "cannot enter the test sandbox: %s\n", why.c_str());
        return 1;
    }
    return RUN_ALL_TESTS();
}
