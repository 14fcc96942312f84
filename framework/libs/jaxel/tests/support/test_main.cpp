#include <gtest/gtest.h>

#include "support/sandbox.h"

int main(int argc, char **argv) {
    ::testing::InitGoogleTest(&argc, argv);
    return jx::test::enter_sandbox() ? RUN_ALL_TESTS() : 1;
}
