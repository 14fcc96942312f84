// Another process that holds an exclusive flock on a file, and the check that
// an operation waits for it deterministically: no sleeps, no time limits.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <sys/types.h>

namespace jx::test {

class LockHolder {
public:
    // Returns once the child process holds the lock (check held()).
    explicit LockHolder(const std::string &path);
    ~LockHolder();
    LockHolder(const LockHolder &) = delete;
    LockHolder &operator=(const LockHolder &) = delete;

    bool held() const { return held_; }
    // Lets the child release the lock and exit; true when it ran cleanly.
    bool release();

private:
    pid_t child_ = -1;
    int to_child_ = -1;
    bool held_ = false;
};

// What happened to a call made while another process held the lock.
struct LockWait {
    bool waited = false;    // it polled for the lock and had not returned while held
    int32_t result = 0;     // its result once the lock was released
    bool released = false;  // afterwards a new open of the file could lock it at once
    int descriptors = 0;    // descriptors it left open (should be 0)
    bool ran = false;       // the child finished and reported
};

// Holds `path` from another process, then runs `call` in a forked child of
// this process (so set-up done before, such as an open handle, is inherited).
// The child's first lock-retry delay proves it is waiting; only then is the
// holder released.
LockWait call_under_lock(const std::string &path, const std::function<int32_t()> &call);

}  // namespace jx::test
