#include <atomic>
#include <chrono>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>

#include "frame/frame.h"
#include "jaxel.h"
#include "support/io_faults.h"
#include "support/lock_holder.h"
#include "support/log_capture.h"
#include "support/sandbox.h"

namespace {

using jx::test::Call;
using LocksTest = jx::test::SandboxTest;

TEST_F(LocksTest, NonPositiveDescriptorsTakeNoLock) {
    jx::test::IoFaults faults;
    jx_file_lock(0);
    jx_file_lock(-1);
    jx_file_unlock(0);
    jx_file_unlock(-1);
    EXPECT_EQ(faults.count(Call::kFlock), 0);
}

// A second process holds the lock; ours waits, polling with delays, and gets it
// only once the holder lets go.
TEST_F(LocksTest, WaitsForAnotherProcessAndPollsWithDelay) {
    const char *path = "/opt/ulx/pram/lockme";
    jx::test::write_file(path, "x");
    jx::test::LockHolder holder(path);
    ASSERT_TRUE(holder.held());

    jx::test::IoFaults faults;
    const int fd = open(path, O_RDONLY);
    std::atomic<bool> locked{false};
    std::thread waiter([&] {
        jx_file_lock(fd);
        locked = true;
    });
    while (faults.count(Call::kDelay) < 3) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    EXPECT_FALSE(locked);
    ASSERT_TRUE(holder.release());
    waiter.join();
    EXPECT_TRUE(locked);

    // We hold it now: another descriptor cannot take it until we unlock.
    const int other = open(path, O_RDONLY);
    EXPECT_NE(flock(other, LOCK_EX | LOCK_NB), 0);
    jx_file_unlock(fd);
    EXPECT_EQ(flock(other, LOCK_EX | LOCK_NB), 0);
    close(other);
    close(fd);
}

TEST_F(LocksTest, RebootFlagCountsOnlyWhenOwnedByRoot) {
    jx::test::LogCapture log;
    EXPECT_EQ(jx::reboot_guard(true), 0);

    jx::test::write_file(jx::kRebootFlagPath, "");
    EXPECT_EQ(jx::reboot_guard(false), JX_ERR_REBOOTING);
    EXPECT_TRUE(log.messages().empty());
    EXPECT_EQ(jx::reboot_guard(true), JX_ERR_REBOOTING);
    EXPECT_EQ(log.messages(), std::vector<std::string>{"reboot processing, operation stopped."});

    ASSERT_EQ(chown(jx::kRebootFlagPath, 1000, 1000), 0);
    EXPECT_FALSE(jx::reboot_flag_set());
    EXPECT_EQ(jx::reboot_guard(true), 0);
}

TEST_F(LocksTest, ExitWaitsForTheRunningOperationAndKeepsTheMutex) {
    std::atomic<bool> exited{false};
    std::thread exiter;
    {
        jx::LibraryLock operation;
        exiter = std::thread([&] {
            EXPECT_EQ(jx_exit(), 0);
            exited = true;
        });
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        EXPECT_FALSE(exited);
    }
    exiter.join();
    EXPECT_TRUE(exited);
    EXPECT_EQ(jx_exit(), 0);  // a second stop does not block
}

TEST_F(LocksTest, FileOperationLockTakesMutexThenFlockAndReleasesBoth) {
    const char *path = "/opt/ulx/pram/f";
    jx::test::write_file(path, "x");
    const int fd = open(path, O_RDONLY);
    const int other = open(path, O_RDONLY);
    {
        jx::FileOperationLock lock(fd);
        EXPECT_NE(flock(other, LOCK_EX | LOCK_NB), 0);
    }
    EXPECT_EQ(flock(other, LOCK_EX | LOCK_NB), 0);
    flock(other, LOCK_UN);
    jx::LibraryLock mutex_is_free_again;
    close(other);
    close(fd);
}

}  // namespace
