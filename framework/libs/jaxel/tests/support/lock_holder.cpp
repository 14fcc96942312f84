#include "support/lock_holder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

namespace jx::test {

LockHolder::LockHolder(const std::string &path) {
    int to_child[2];
    int to_parent[2];
    if (pipe(to_child) != 0 || pipe(to_parent) != 0) {
        return;
    }
    child_ = fork();
    if (child_ == 0) {
        const int fd = open(path.c_str(), O_RDONLY);
        char c = 0;
        if (fd < 0 || flock(fd, LOCK_EX) != 0 || write(to_parent[1], "L", 1) != 1 ||
            read(to_child[0], &c, 1) != 1) {
            _exit(1);
        }
        _exit(0);  // exiting releases the lock
    }
    close(to_child[0]);
    close(to_parent[1]);
    to_child_ = to_child[1];
    char c = 0;
    held_ = child_ > 0 && read(to_parent[0], &c, 1) == 1;
    close(to_parent[0]);
}

bool LockHolder::release() {
    if (child_ <= 0) {
        return false;
    }
    const bool told = write(to_child_, "G", 1) == 1;
    close(to_child_);
    int status = 0;
    const bool waited = waitpid(child_, &status, 0) == child_;
    child_ = -1;
    held_ = false;
    return told && waited && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

LockHolder::~LockHolder() {
    if (child_ > 0) {
        (void)release();
    }
}

}  // namespace jx::test
