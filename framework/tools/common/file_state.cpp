#include "file_state.h"

#include <unistd.h>

#include "integrity/integrity.h"
#include "recovery/recovery.h"

namespace jx::tools {
namespace {

bool exists(const char *path) { return ::access(path, F_OK) == 0; }

CopyState working_state(const RegItem &item) {
    if (!exists(item.src)) {
        return CopyState::kMissing;
    }
    return is_ram_file_valid(item.src) == 1 ? CopyState::kOk : CopyState::kMismatch;
}

// A copy without a checksum file (C, P) is judged by whether it can be read.
CopyState copy_state(const char *path, const char *crc) {
    if (path[0] == '\0') {
        return CopyState::kNone;
    }
    if (!exists(path)) {
        return CopyState::kMissing;
    }
    if (crc[0] != '\0') {
        return is_file_valid(path, crc) == 1 ? CopyState::kOk : CopyState::kMismatch;
    }
    Content held;
    return jx_get_contents(path, held) ? CopyState::kOk : CopyState::kMismatch;
}

bool holds_working_copy(const RegItem &item) {
    Content working;
    GErrorPtr error;
    char digest[kSha256HexSize];
    if (!read_whole_file(item.src, working, error) ||
        !sha256_hex(working.data.get(), working.len, digest)) {
        return false;
    }
    const bool backup_kept = item.bak[0] != '\0' && g_strcmp0(item.bak, item.dst) != 0;
    return pair_holds(item.dst, item.crc, digest) &&
           (!backup_kept || pair_holds(item.bak, item.bakcrc, digest));
}

}  // namespace

FileState examine(const RegItem &item) {
    FileState state;
    if (item.protect_mode == JX_PROTECT_F) {
        state.working = exists(item.src) ? CopyState::kOk : CopyState::kMissing;
        state.in_step = true;
        return state;
    }
    state.working = working_state(item);
    state.durable = copy_state(item.dst, item.crc);
    // An R file's durable copy is its backup: one pair, reported once.
    if (g_strcmp0(item.bak, item.dst) != 0) {
        state.backup = copy_state(item.bak, item.bakcrc);
    }
    state.in_step = state.working == CopyState::kOk && holds_working_copy(item);
    state.durable_judged = item.protect_mode != JX_PROTECT_C;
    return state;
}

FileState busy_state() {
    return {CopyState::kBusy, CopyState::kBusy, CopyState::kBusy, false, true};
}

const char *state_name(CopyState state) {
    switch (state) {
    case CopyState::kOk: return "ok";
    case CopyState::kMissing: return "missing";
    case CopyState::kMismatch: return "mismatch";
    case CopyState::kBusy: return "busy";
    case CopyState::kNone: break;
    }
    return "none";
}

bool needs_attention(const FileState &state) {
    const CopyState durable = state.durable_judged ? state.durable : CopyState::kNone;
    for (const CopyState copy : {state.working, durable, state.backup}) {
        if (copy != CopyState::kOk && copy != CopyState::kNone) {
            return true;
        }
    }
    return false;
}

}  // namespace jx::tools
