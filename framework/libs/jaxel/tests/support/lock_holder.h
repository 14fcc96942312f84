// Another process that holds an exclusive flock on a file until told to let go.
#pragma once

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

}  // namespace jx::test
