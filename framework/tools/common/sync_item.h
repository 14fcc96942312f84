// Brings the durable copies of one registered file in step with its working
// copy, in the order recovery relies on. The caller holds the item's lock.
#pragma once

#include <cstdint>
#include <functional>

#include "registry/registry.h"

namespace jx::tools {

enum class SyncResult {
    kInStep,  // nothing to write
    kWritten,
    kWouldWrite,   // dry run
    kUnverified,   // the working copy fails its side file
    kMissing,      // the working copy was never written: nothing to propagate
    kNeedsRepair,  // the working copy is gone but a durable copy could rebuild it
    kThrottled,    // the wear budget refused the bytes; try later
    kFailed,
    kRebooting,
    kNotKept,  // the protect mode keeps no copy to sync (F)
};

struct SyncOutcome {
    SyncResult result = SyncResult::kInStep;
    uint64_t bytes = 0;  // written, or that would be written
};

// Asked with the bytes a sync would write to the save area and flash.
using Admit = std::function<bool(uint64_t bytes)>;

SyncOutcome sync_item(const RegItem &item, bool dry_run, const Admit &admit);

const char *sync_result_name(SyncResult result);
// The exit bits of jaxelctl sync (and jaxel-syncd --once) for one file.
int sync_exit_bits(SyncResult result);

}  // namespace jx::tools
