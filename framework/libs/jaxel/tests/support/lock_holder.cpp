#include "support/lock_holder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include "frame/io.h"
#include "support/sandbox.h"

namespace jx::test {
namespace {

int g_report_fd = -1;
bool g_told_waiting = false;

// Installed in the calling child: the library only delays while a lock is busy.
void report_first_delay(uint32_t units) {
    if (!g_told_waiting) {
        g_told_waiting = write(g_report_fd, "W", 1) == 1;
    }
    real_io().delay(units);
}

bool lock_free_now(const std::string &path) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const bool free = fd >= 0 && flock(fd, LOCK_EX | LOCK_NB) == 0;
    (void)(fd >= 0 && close(fd));
    return free;
}

[[noreturn]] void run_caller(int report_fd, const std::string &path,
                             const std::function<int32_t()> &call) {
    g_report_fd = report_fd;
    io().delay = report_first_delay;
    const int before = open_descriptor_count();
    LockWait outcome;
    outcome.result = call();
    outcome.descriptors = open_descriptor_count() - before;
    outcome.released = lock_free_now(path);
    outcome.ran = true;
    const bool sent = write(report_fd, "R", 1) == 1 &&
                      write(report_fd, &outcome, sizeof outcome) == sizeof outcome;
    _exit(sent ? 0 : 1);
}

bool exited_cleanly(pid_t child) {
    int status = 0;
    return waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace

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
        const bool locked = fd >= 0 && flock(fd, LOCK_EX) == 0 && write(to_parent[1], "L", 1) == 1;
        _exit(locked && read(to_child[0], &c, 1) == 1 ? 0 : 1);  // exiting releases the lock
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
    const bool clean = exited_cleanly(child_);
    child_ = -1;
    held_ = false;
    return told && clean;
}

LockHolder::~LockHolder() { (void)release(); }

LockWait call_under_lock(const std::string &path, const std::function<int32_t()> &call) {
    LockWait outcome;
    LockHolder holder(path);
    int report[2];
    if (!holder.held() || pipe(report) != 0) {
        return outcome;
    }
    const pid_t caller = fork();
    if (caller == 0) {
        close(report[0]);
        run_caller(report[1], path, call);
    }
    close(report[1]);
    // A call that returns without polling reports "R" first and fails the check.
    char tag = 0;
    const bool waited = read(report[0], &tag, 1) == 1 && tag == 'W';
    (void)holder.release();
    if (waited && read(report[0], &tag, 1) != 1) {
        tag = 0;
    }
    if (tag == 'R') {
        (void)read(report[0], &outcome, sizeof outcome);
    }
    close(report[0]);
    outcome.ran = exited_cleanly(caller) && outcome.ran;
    outcome.waited = waited;
    return outcome;
}

}  // namespace jx::test
