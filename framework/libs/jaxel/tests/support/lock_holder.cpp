#include "support/lock_holder.h"

#include <fcntl.h>
#include <filesystem>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include "frame/io.h"

namespace jx::test {
namespace {

int g_report_fd = -1;
bool g_told_waiting = false;

// Installed in the calling child: the library only delays while a lock is busy.
void report_first_delay(uint32_t units) {
    if (!g_told_waiting)
        g_told_waiting = write(g_report_fd, "W", 1) == 1;
    real_io().delay(units);
}

int open_descriptor_count() {
    const std::filesystem::directory_iterator fds("/proc/self/fd");
    return static_cast<int>(std::distance(fds, std::filesystem::directory_iterator()));
}

[[noreturn]] void run_caller(int report_fd, const std::string &path,
                             const std::function<int32_t()> &call) {
    g_report_fd = report_fd;
    io().delay = report_first_delay;
    const int before = open_descriptor_count();
    // In order: the lock probe closes what it opens, so the count is not disturbed.
    const LockWait outcome{.result = call(),
                           .released = lock_free_now(path),
                           .descriptors = open_descriptor_count() - before,
                           .ran = true};
    const bool sent = write(report_fd, "R", 1) == 1 &&
                      write(report_fd, &outcome, sizeof outcome) == sizeof outcome;
    _exit(sent ? 0 : 1);
}

}  // namespace

bool lock_free_now(const std::string &path) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const bool free = fd >= 0 && flock(fd, LOCK_EX | LOCK_NB) == 0;
    (void)(fd >= 0 && close(fd));
    return free;
}

LockWait call_under_lock(const std::string &path, const std::function<int32_t()> &call) {
    LockWait outcome;
    const int held = open(path.c_str(), O_RDONLY);
    int report[2];
    if (held < 0 || flock(held, LOCK_EX) != 0 || pipe(report) != 0) {
        (void)(held >= 0 && close(held));
        return outcome;
    }
    const pid_t caller = fork();
    if (caller == 0) {
        close(held);  // the lock stays with the parent's descriptor
        close(report[0]);
        run_caller(report[1], path, call);
    }
    close(report[1]);
    // A call that returns without polling reports "R" first and fails the check.
    char tag = 0;
    const bool waited = read(report[0], &tag, 1) == 1 && tag == 'W';
    (void)flock(held, LOCK_UN);
    close(held);
    if ((!waited || read(report[0], &tag, 1) == 1) && tag == 'R')
        (void)read(report[0], &outcome, sizeof outcome);
    close(report[0]);
    int status = 0;
    outcome.ran = waitpid(caller, &status, 0) == caller && WIFEXITED(status) &&
                  WEXITSTATUS(status) == 0 && outcome.ran;
    outcome.waited = waited;
    return outcome;
}

}  // namespace jx::test
