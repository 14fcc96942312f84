// The registered files as the table lists them, read under the table lock,
// which is released before any file lock is taken: start-up takes file locks
// while it holds the table lock, so the other order would deadlock.
#pragma once

#include <cstdint>
#include <vector>

#include "registry/registry.h"

namespace jx::tools {

enum class SnapshotResult { kOk, kUnreadable, kBusy };

struct TableSnapshot {
    std::vector<RegItem> items;
    RegIndex index;
};

SnapshotResult take_snapshot(uint32_t wait_ms, TableSnapshot &out);

// Items whose working copy is one of `paths` (all when paths is empty).
std::vector<RegItem> select_items(const TableSnapshot &snapshot,
                                  const std::vector<const char *> &paths);

char mode_letter(ProtectMode mode);

}  // namespace jx::tools
