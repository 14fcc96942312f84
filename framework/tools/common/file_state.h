// What each copy of a registered file holds right now, read without writing.
#pragma once

#include "registry/registry.h"

namespace jx::tools {

// kNone: the protect mode keeps no such copy.
enum class CopyState { kOk, kMissing, kMismatch, kBusy, kNone };

struct FileState {
    CopyState working = CopyState::kNone;
    CopyState durable = CopyState::kNone;
    CopyState backup = CopyState::kNone;
    bool in_step = false;  // every durable pair holds the working content
    // A C file's durable copy only follows its working copy, which has no side
    // file to verify it by: missing or behind, it is out of step, not damaged.
    bool durable_judged = true;
};

// The caller holds the item's lock.
FileState examine(const RegItem &item);
FileState busy_state();

const char *state_name(CopyState state);
bool needs_attention(const FileState &state);

}  // namespace jx::tools
