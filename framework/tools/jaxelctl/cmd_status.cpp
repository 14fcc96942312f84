// status and verify: they read every copy and never write.
#include <string>

#include "commands.h"
#include "per_file.h"
#include "syncd_state.h"

namespace jx::tools {
namespace {

void add_syncd_facts(const SyncdState &syncd, Row &row) {
    for (const SyncdFile &file : syncd.files) {
        if (file.path == row.path) {
            row.has_syncd = true;
            row.pending = file.pending;
            row.last_sync = file.last_sync;
        }
    }
}

}  // namespace

void run_status(const CtlOptions &options, const Paths &paths, Report &report) {
    SyncdState syncd;
    const bool have_syncd = read_syncd_state(syncd);
    for_each_file(options, paths, report, [&](const RegItem &item, Row &row) {
        row.state = examine(item);
        if (have_syncd) {
            add_syncd_facts(syncd, row);
        }
        return kExitClean;
    });
}

// Damage is a problem; a durable copy that lags behind a sound working copy is
// only reported, since the sync service brings it in step after its debounce.
void run_verify(const CtlOptions &options, const Paths &paths, Report &report) {
    for_each_file(options, paths, report, [&](const RegItem &item, Row &row) {
        row.state = examine(item);
        return needs_attention(row.state) ? kExitProblems : kExitClean;
    });
}

}  // namespace jx::tools
