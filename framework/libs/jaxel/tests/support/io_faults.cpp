#include "support/io_faults.h"

#include <atomic>
#include <cerrno>
#include <type_traits>
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

// Flash calls report a failure as the negated errno.
constexpr int kNegatedErrno = 1 << 30;

template <Call kCall, auto kField, int kFailure, typename Fn>
struct Hook;

template <Call kCall, auto kField, int kFailure, typename R, typename... A>
struct Hook<kCall, kField, kFailure, R (*)(A...)> {
    static R call(A... args) {
        const bool failed = trip(kCall);
        if constexpr (std::is_void_v<R>) {
            (g_saved.*kField)(args...);
        } else if constexpr (std::is_pointer_v<R>) {
            return failed ? nullptr : (g_saved.*kField)(args...);
        } else {
            const R failure = kFailure == kNegatedErrno ? -g_rules[static_cast<int>(kCall)].err
                                                        : static_cast<R>(kFailure);
            return failed ? failure : (g_saved.*kField)(args...);
        }
    }
};

template <Call kCall, auto kField, int kFailure = -1>
void hook() {
    io().*kField =
        Hook<kCall, kField, kFailure, std::remove_reference_t<decltype(io().*kField)>>::call;
}

}  // namespace

IoFaults::IoFaults() {
    g_saved = io();
    for (Rule &rule : g_rules) {
        rule.count = 0;
        rule.fail_at = rule.err = rule.crash_at = 0;
        rule.sticky = false;
    }
    hook<Call::kOpen, &Io::open>();
    hook<Call::kFopen, &Io::fopen>();
    hook<Call::kFwrite, &Io::fwrite, 0>();
    hook<Call::kFputc, &Io::fputc>();
    hook<Call::kFflush, &Io::fflush>();
    hook<Call::kFsync, &Io::fsync>();
    hook<Call::kFtruncate, &Io::ftruncate>();
    hook<Call::kUnlink, &Io::unlink>();
    hook<Call::kChmod, &Io::chmod>();
    hook<Call::kFchmod, &Io::fchmod>();
    hook<Call::kChown, &Io::chown>();
    hook<Call::kFchown, &Io::fchown>();
    hook<Call::kFlock, &Io::flock>();
    hook<Call::kRun, &Io::run, 1>();
    hook<Call::kDelay, &Io::delay>();
    hook<Call::kPflashOpen, &Io::pflash_open>();
    hook<Call::kPflashWrite, &Io::pflash_write, kNegatedErrno>();
    hook<Call::kPflashGetContents, &Io::pflash_get_contents, kNegatedErrno>();
    hook<Call::kPflashRecover, &Io::pflash_recover_file, kNegatedErrno>();
    hook<Call::kFclose, &Io::fclose>();
    hook<Call::kClose, &Io::close>();
    hook<Call::kFseek, &Io::fseek>();
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
