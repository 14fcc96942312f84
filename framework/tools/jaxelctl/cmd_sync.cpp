// sync: durable copies and backups brought in step with valid working copies.
#include "commands.h"
#include "per_file.h"
#include "sync_item.h"

namespace jx::tools {
namespace {

int exit_bits(SyncResult result) {
    switch (result) {
    case SyncResult::kWritten: return kExitFixed;
    case SyncResult::kWouldWrite:
    case SyncResult::kUnverified:
    case SyncResult::kFailed: return kExitProblems;
    case SyncResult::kRebooting:
    case SyncResult::kThrottled: return kExitOperational;
    case SyncResult::kInStep:
    case SyncResult::kNotKept: break;
    }
    return kExitClean;
}

}  // namespace

void run_sync(const CtlOptions &options, const Paths &paths, Report &report) {
    if (!options.dry_run && refuse_during_reboot(report)) {
        return;
    }
    for_each_file(options, paths, report, [&](const RegItem &item, Row &row) {
        const SyncOutcome outcome = sync_item(item, options.dry_run, nullptr);
        row.action = sync_result_name(outcome.result);
        row.state = inspect(item);
        return exit_bits(outcome.result);
    });
}

}  // namespace jx::tools
