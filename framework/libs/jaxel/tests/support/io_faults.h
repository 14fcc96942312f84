// Fault injection through the I/O seam: count calls, fail the Nth one with a
// chosen errno (once or from then on), or end the process just before it as a
// power cut would.
#pragma once

namespace jx::test {

// The seam entries a test can count, fail or crash before: the Call name and
// the Io member it hooks.
#define JX_TEST_HOOKED_CALLS(X)                                                                   \
    X(kOpen, open), X(kFopen, fopen), X(kFwrite, fwrite), X(kFputc, fputc), X(kFflush, fflush),   \
        X(kFsync, fsync), X(kFtruncate, ftruncate), X(kUnlink, unlink), X(kChmod, chmod),         \
        X(kFchmod, fchmod), X(kChown, chown), X(kFchown, fchown), X(kFlock, flock), X(kRun, run), \
        X(kDelay, delay), X(kPflashOpen, pflash_open), X(kPflashWrite, pflash_write),             \
        X(kPflashGetContents, pflash_get_contents), X(kPflashRecover, pflash_recover_file),       \
        X(kFclose, fclose), X(kClose, close), X(kFseek, fseek), X(kWrite, write),                 \
        X(kPwrite, pwrite), X(kRename, rename), X(kMkdir, mkdir)

#define JX_TEST_CALL_NAME(name, member) name
enum class Call { JX_TEST_HOOKED_CALLS(JX_TEST_CALL_NAME), kCount };
#undef JX_TEST_CALL_NAME

// Exit status of a process ended by crash_before.
inline constexpr int kCrashExitStatus = 86;

class IoFaults {
public:
    IoFaults();
    ~IoFaults();
    IoFaults(const IoFaults &) = delete;
    IoFaults &operator=(const IoFaults &) = delete;

    // The nth call from now (1-based) fails with err; with sticky, all after it too.
    // Failing flash calls return -err where they return a code.
    void fail(Call call, int nth, int err, bool sticky = false);
    void crash_before(Call call, int nth);
    int count(Call call) const;
};

}  // namespace jx::test
