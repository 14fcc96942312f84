#include "per_file.h"

#include "frame/frame.h"
#include "item_lock.h"
#include "table_snapshot.h"

namespace jx::tools {
namespace {

bool all_registered(const Paths &paths, const std::vector<RegItem> &items, Report &report) {
    for (const char *path : paths) {
        bool found = false;
        for (const RegItem &item : items) {
            found = found || g_strcmp0(item.src, path) == 0;
        }
        if (!found) {
            report.fail(std::string("not registered: ") + path, kExitOperational);
            return false;
        }
    }
    return true;
}

}  // namespace

void for_each_file(const CtlOptions &options, const Paths &paths, Report &report,
                   const FileAction &action, ProtectMode only) {
    TableSnapshot snapshot;
    switch (take_snapshot(options.wait_ms(), snapshot)) {
    case SnapshotResult::kOk: break;
    case SnapshotResult::kBusy: return report.fail("table lock wait timed out", kExitOperational);
    case SnapshotResult::kUnreadable: return report.fail("table unreadable", kExitOperational);
    }
    const std::vector<RegItem> items = select_items(snapshot, paths);
    if (!all_registered(paths, items, report)) {
        return;
    }
    for (const RegItem &item : items) {
        if (only != JX_PROTECT_INVALID && item.protect_mode != only) {
            continue;
        }
        Row row;
        row.path = item.src;
        row.mode = mode_letter(item.protect_mode);
        const ItemLock lock(item, options.wait_ms());
        if (lock.held()) {
            report.exit_code |= action(item, row);
        } else {
            row.state = busy_state();
            row.action = "busy";
            report.fail("file lock wait timed out", kExitOperational);
        }
        report.rows.push_back(row);
    }
}

bool refuse_during_reboot(const CtlOptions &options, Report &report) {
    if (!reboot_flag_set()) {
        return false;
    }
    if (options.dry_run) {
        report.rebooting = true;
        return false;
    }
    report.fail("reboot in progress", kExitOperational);
    return true;
}

}  // namespace jx::tools
