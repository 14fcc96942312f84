// Every operation that changes a file waits for another process's lock on it,
// returns once the lock is released, and leaves no lock or descriptor behind.
#include <gtest/gtest.h>

#include "jaxel.h"
#include "support/builders.h"
#include "support/lock_holder.h"
#include "support/sandbox.h"

namespace jx::test {
namespace {

class LockWaitTest : public SandboxTest {};

TEST_F(LockWaitTest, WriteWaitsForTheFileLock) {
    ASSERT_EQ(register_items("app", {item_cfg("data", JX_PROTECT_C)}), JX_OK);
    Handle handle = open_handle("data", "a");
    ASSERT_NE(handle, nullptr);
    const LockWait wait = call_under_lock(tier_path("app", "data"), [&] {
        return write_text(handle.get(), "abc");
    });
    EXPECT_TRUE(wait.waited);
    EXPECT_TRUE(wait.ran);
    EXPECT_EQ(wait.result, 3);
    EXPECT_TRUE(wait.released);
    EXPECT_EQ(wait.descriptors, 0);
}

}  // namespace
}  // namespace jx::test
