// Fault injection through the I/O seam: count calls, fail the Nth one with a
// chosen errno (once or from then on), or end the process just before it as a
// power cut would.
#pragma once

namespace jx::test {

enum class Call {
    kOpen,
    kFopen,
    kFwrite,
    kFputc,
    kFflush,
    kFsync,
    kFtruncate,
    kUnlink,
    kChmod,
    kFchmod,
    kChown,
    kFchown,
    kFlock,
    kRun,
    kDelay,
    kPflashOpen,
    kPflashWrite,
    kPflashGetContents,
    kPflashRecover,
    kFclose,
    kClose,
    kFseek,
    kWrite,
    kPwrite,
    kRename,
    kMkdir,
    kCount
};

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
