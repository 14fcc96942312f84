// repair: the library's own recovery on each damaged file. A damaged working
// copy is rebuilt from the durable copy (after recovery chose which durable
// pair is the truth); damaged durable copies alone are reconciled with each
// other and the working copy is left as it is.
#include "commands.h"
#include "per_file.h"
#include "recovery/recovery.h"

namespace jx::tools {
namespace {

bool working_damaged(const FileState &state) {
    return state.working == CopyState::kMissing || state.working == CopyState::kMismatch;
}

// The copy the repair takes as the truth, as recovery weighs them: the durable
// copy when it verifies, else its backup; null when neither does.
const char *truth(const FileState &state) {
    if (state.durable == CopyState::kOk) {
        return "-from-durable";
    }
    return state.backup == CopyState::kOk ? "-from-backup" : nullptr;
}

// Without a copy to repair from, recovery cannot help: a sound working copy
// only needs a sync, anything else is beyond repair.
int nothing_to_repair_from(const FileState &state, Row &row) {
    row.action = state.working == CopyState::kOk ? "needs-sync" : "unrepairable";
    return kExitProblems;
}

int32_t run_recovery(const RegItem &item, bool rebuild_working) {
    if (rebuild_working) {
        return jx_file_recover_by_name(item.src, &item);
    }
    return jx_recover_dst_file(&item);
}

int repair_one(const CtlOptions &options, const RegItem &item, Row &row) {
    row.state = examine(item);
    if (!needs_attention(row.state) || item.protect_mode == JX_PROTECT_F) {
        return kExitClean;
    }
    const char *source = truth(row.state);
    if (source == nullptr) {
        return nothing_to_repair_from(row.state, row);
    }
    const bool rebuild_working = working_damaged(row.state);
    row.action = rebuild_working ? "rebuild-working" : "repair-durable";
    row.action += source;
    if (options.dry_run) {
        row.action = "would-" + row.action;
        return kExitProblems;
    }
    const int32_t rc = run_recovery(item, rebuild_working);
    row.state = examine(item);
    if (rc != JX_OK || needs_attention(row.state)) {
        row.action += "-failed";
        return kExitProblems;
    }
    return kExitFixed;
}

}  // namespace

void run_repair(const CtlOptions &options, const Paths &paths, Report &report) {
    if (refuse_during_reboot(options, report)) {
        return;
    }
    for_each_file(options, paths, report,
                  [&](const RegItem &item, Row &row) { return repair_one(options, item, row); });
}

}  // namespace jx::tools
