#include "sync_item.h"

#include <unistd.h>

#include "exit_codes.h"

#include "frame/frame.h"
#include "integrity/integrity.h"
#include "integrity/tier.h"

namespace jx::tools {
namespace {

bool synced_mode(ProtectMode mode) {
    return mode == JX_PROTECT_R || mode == JX_PROTECT_C || mode == JX_PROTECT_E ||
           mode == JX_PROTECT_S || mode == JX_PROTECT_P;
}

bool exists(const char *path) { return path[0] != '\0' && ::access(path, F_OK) == 0; }

// The working content and its digest, only when its side file records exactly
// it. A C file keeps no side file, so its content is taken as it is.
bool verified_working_copy(const RegItem &item, Content &content, char (&digest)[kSha256HexSize]) {
    Content side;
    GErrorPtr error;
    if (!read_whole_file(item.src, content, error) ||
        !sha256_hex(content.data.get(), content.len, digest)) {
        return false;
    }
    if (item.protect_mode == JX_PROTECT_C) {
        return true;
    }
    const Path side_path = side_file_of(item.src);
    return read_whole_file(side_path.c_str(), side, error) &&
           digest_exact_equal(digest, side.data.get());
}

// An absent working copy is only a problem when a durable copy could rebuild it.
SyncResult absent_working_copy(const RegItem &item) {
    return exists(item.dst) || exists(item.bak) ? SyncResult::kNeedsRepair : SyncResult::kMissing;
}

uint64_t counted(const char *path, uint64_t len) { return tier_of(path) == Tier::kPlain ? 0 : len; }

// Bytes the writes would cost the save area and flash; `stale` tells whether any are due.
uint64_t planned_bytes(const RegItem &item, uint32_t len, const char *digest, bool &stale) {
    uint64_t bytes = 0;
    stale = false;
    const struct {
        const char *path;
        const char *crc;
    } pairs[] = {{item.dst, item.crc}, {item.bak, item.bakcrc}};
    for (const auto &pair : pairs) {
        if (pair.path[0] == '\0' || pair_holds(pair.path, pair.crc, digest)) {
            continue;
        }
        stale = true;
        bytes += counted(pair.path, len);
        if (pair.crc[0] != '\0') {
            bytes += counted(pair.crc, kChecksumFileSize);
        }
    }
    return bytes;
}

}  // namespace

SyncOutcome sync_item(const RegItem &item, bool dry_run, const Admit &admit) {
    if (!synced_mode(item.protect_mode)) {
        return {SyncResult::kNotKept, 0};
    }
    if (!exists(item.src)) {
        return {absent_working_copy(item), 0};
    }
    Content content;
    char digest[kSha256HexSize];
    if (!verified_working_copy(item, content, digest)) {
        return {SyncResult::kUnverified, 0};
    }
    bool stale = false;
    const uint64_t bytes = planned_bytes(item, content.len, digest, stale);
    if (!stale) {
        return {SyncResult::kInStep, 0};
    }
    if (dry_run) {
        return {SyncResult::kWouldWrite, bytes};
    }
    if (reboot_flag_set()) {
        return {SyncResult::kRebooting, 0};
    }
    if (admit && !admit(bytes)) {
        return {SyncResult::kThrottled, bytes};
    }
    uint64_t written = 0;
    const char *data = content.data ? content.data.get() : "";
    const int32_t rc = write_durable_copies(item, data, content.len, digest, written);
    return {rc == JX_OK ? SyncResult::kWritten : SyncResult::kFailed, written};
}

const char *sync_result_name(SyncResult result) {
    switch (result) {
    case SyncResult::kInStep: return "none";
    case SyncResult::kWritten: return "synced";
    case SyncResult::kWouldWrite: return "would-sync";
    case SyncResult::kUnverified: return "unverified";
    case SyncResult::kMissing: return "missing";
    case SyncResult::kNeedsRepair: return "needs-repair";
    case SyncResult::kThrottled: return "throttled";
    case SyncResult::kFailed: return "failed";
    case SyncResult::kRebooting: return "rebooting";
    case SyncResult::kNotKept: break;
    }
    return "not-kept";
}

int sync_exit_bits(SyncResult result) {
    switch (result) {
    case SyncResult::kWritten: return kExitFixed;
    case SyncResult::kWouldWrite:
    case SyncResult::kUnverified:
    case SyncResult::kNeedsRepair:
    case SyncResult::kFailed:
    case SyncResult::kThrottled: return kExitProblems;
    case SyncResult::kRebooting: return kExitOperational;
    case SyncResult::kInStep:
    case SyncResult::kMissing:
    case SyncResult::kNotKept: break;
    }
    return kExitClean;
}

}  // namespace jx::tools
