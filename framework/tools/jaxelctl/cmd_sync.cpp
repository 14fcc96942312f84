// sync: durable copies and backups brought in step with valid working copies.
#include "commands.h"
#include "per_file.h"
#include "sync_item.h"

namespace jx::tools {

void run_sync(const CtlOptions &options, const Paths &paths, Report &report) {
    if (refuse_during_reboot(options, report)) {
        return;
    }
    for_each_file(options, paths, report, [&](const RegItem &item, Row &row) {
        const SyncOutcome outcome = sync_item(item, options.dry_run, nullptr);
        row.action = sync_result_name(outcome.result);
        row.state = examine(item);
        return sync_exit_bits(outcome.result);
    });
}

}  // namespace jx::tools
