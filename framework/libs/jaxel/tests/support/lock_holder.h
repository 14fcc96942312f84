// The check that an operation waits for a lock another process holds on its
// file, made deterministic: no sleeps, no time limits.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace jx::test {

// What happened to a call made while another process held the lock.
struct LockWait {
    bool waited = false;    // it polled for the lock and had not returned while held
    int32_t result = 0;     // its result once the lock was released
    bool released = false;  // afterwards a new open of the file could lock it at once
    int descriptors = 0;    // descriptors it left open (should be 0)
    bool ran = false;       // the child finished and reported
};

// Whether a new open of `path` could lock it at once (flock: even in this process).
bool lock_free_now(const std::string &path);

// Holds an exclusive flock on `path` in this process, then runs `call` in a
// forked child (so set-up done before, such as an open handle, is inherited).
// The child's first lock-retry delay proves it is waiting; only then is the
// lock released.
LockWait call_under_lock(const std::string &path, const std::function<int32_t()> &call);

}  // namespace jx::test
