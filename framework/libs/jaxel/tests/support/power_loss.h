// A power cut, not a process death: crash before the Nth durable step, after
// putting every file back to what storage would hold. Durable steps are the
// seam's write, pwrite, fwrite, fputc, fflush, fseek, ftruncate, fsync, unlink,
// rename, mkdir, program runs and flash writes. A file holds its bytes as of
// its last fsync (or of its first use, when it never was); a file created or
// removed counts only once its directory was fsynced. Directories themselves,
// flash files (the driver syncs them) and files changed by programs the
// library runs are taken as durable.
#pragma once

namespace jx::test {

enum class CrashModel {
    kPersistentRam,  // the working area keeps what was written; the save area rolls back
    kStrict,         // every file rolls back
    kStrictTorn,     // every file rolls back, but keeps a prefix of its unsynced change
};

class PowerLoss {
public:
    // crash_step 0 never crashes, so steps() measures a clean run.
    PowerLoss(CrashModel model, int crash_step);
    ~PowerLoss();
    PowerLoss(const PowerLoss &) = delete;
    PowerLoss &operator=(const PowerLoss &) = delete;

    int steps() const;
};

}  // namespace jx::test
