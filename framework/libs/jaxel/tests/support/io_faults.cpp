#include "support/io_faults.h"

#include <atomic>
#include <cerrno>
#include <unistd.h>

#include "frame/io.h"

namespace jx::test {
namespace {

struct Rule {
    std::atomic<int> count{0};
    int fail_at = 0;
    int err = 0;
    bool sticky = false;
    int crash_at = 0;
};

Rule g_rules[static_cast<int>(Call::kCount)];
Io g_saved;

// Counts the call and says whether it must fail now.
bool trip(Call call) {
    Rule &rule = g_rules[static_cast<int>(call)];
    const int n = ++rule.count;
    if (rule.crash_at == n) {
        _exit(kCrashExitStatus);
    }
    if (rule.fail_at != 0 && (n == rule.fail_at || (rule.sticky && n > rule.fail_at))) {
        errno = rule.err;
        return true;
    }
    return false;
}

int err_of(Call call) { return g_rules[static_cast<int>(call)].err; }

int open_(const char *p, int f, mode_t m) { return trip(Call::kOpen) ? -1 : g_saved.open(p, f, m); }
FILE *fopen_(const char *p, const char *m) {
    return trip(Call::kFopen) ? nullptr : g_saved.fopen(p, m);
}
size_t fwrite_(const void *d, size_t s, size_t n, FILE *f) {
    return trip(Call::kFwrite) ? 0 : g_saved.fwrite(d, s, n, f);
}
int fputc_(int c, FILE *f) { return trip(Call::kFputc) ? EOF : g_saved.fputc(c, f); }
int fflush_(FILE *f) { return trip(Call::kFflush) ? EOF : g_saved.fflush(f); }
int fsync_(int fd) { return trip(Call::kFsync) ? -1 : g_saved.fsync(fd); }
int ftruncate_(int fd, off_t l) { return trip(Call::kFtruncate) ? -1 : g_saved.ftruncate(fd, l); }
int unlink_(const char *p) { return trip(Call::kUnlink) ? -1 : g_saved.unlink(p); }
int chmod_(const char *p, mode_t m) { return trip(Call::kChmod) ? -1 : g_saved.chmod(p, m); }
int fchmod_(int fd, mode_t m) { return trip(Call::kFchmod) ? -1 : g_saved.fchmod(fd, m); }
int chown_(const char *p, uid_t u, gid_t g) {
    return trip(Call::kChown) ? -1 : g_saved.chown(p, u, g);
}
int fchown_(int fd, uid_t u, gid_t g) {
    return trip(Call::kFchown) ? -1 : g_saved.fchown(fd, u, g);
}
int flock_(int fd, int op) { return trip(Call::kFlock) ? -1 : g_saved.flock(fd, op); }
int run_(const char *p, char *const argv[]) { return trip(Call::kRun) ? 1 : g_saved.run(p, argv); }
void delay_(uint32_t units) {
    (void)trip(Call::kDelay);
    g_saved.delay(units);
}
void *pflash_open_(const char *p, int f) {
    return trip(Call::kPflashOpen) ? nullptr : g_saved.pflash_open(p, f);
}
int pflash_write_(void *h, const void *b, uint32_t l) {
    return trip(Call::kPflashWrite) ? -err_of(Call::kPflashWrite) : g_saved.pflash_write(h, b, l);
}
int pflash_get_contents_(void *h, char **b, uint32_t *l) {
    return trip(Call::kPflashGetContents) ? -err_of(Call::kPflashGetContents)
                                          : g_saved.pflash_get_contents(h, b, l);
}
int pflash_recover_(const char *p) {
    return trip(Call::kPflashRecover) ? -err_of(Call::kPflashRecover)
                                      : g_saved.pflash_recover_file(p);
}

}  // namespace

IoFaults::IoFaults() {
    g_saved = io();
    for (Rule &rule : g_rules) {
        rule.count = 0;
        rule.fail_at = rule.err = rule.crash_at = 0;
        rule.sticky = false;
    }
    Io &live = io();
    live.open = open_;
    live.fopen = fopen_;
    live.fwrite = fwrite_;
    live.fputc = fputc_;
    live.fflush = fflush_;
    live.fsync = fsync_;
    live.ftruncate = ftruncate_;
    live.unlink = unlink_;
    live.chmod = chmod_;
    live.fchmod = fchmod_;
    live.chown = chown_;
    live.fchown = fchown_;
    live.flock = flock_;
    live.run = run_;
    live.delay = delay_;
    live.pflash_open = pflash_open_;
    live.pflash_write = pflash_write_;
    live.pflash_get_contents = pflash_get_contents_;
    live.pflash_recover_file = pflash_recover_;
}

IoFaults::~IoFaults() {
    // Keep the log hook that may have been installed after us.
    const auto syslog = io().syslog;
    io() = g_saved;
    io().syslog = syslog;
}

void IoFaults::fail(Call call, int nth, int err, bool sticky) {
    Rule &rule = g_rules[static_cast<int>(call)];
    rule.fail_at = rule.count + nth;
    rule.err = err;
    rule.sticky = sticky;
}

void IoFaults::crash_before(Call call, int nth) {
    Rule &rule = g_rules[static_cast<int>(call)];
    rule.crash_at = rule.count + nth;
}

int IoFaults::count(Call call) const { return g_rules[static_cast<int>(call)].count; }

}  // namespace jx::test
