// The walk every per-file command makes: a table snapshot, then each selected
// file under its own lock, waited for at most --wait seconds.
#pragma once

#include <functional>

#include "commands.h"
#include "registry/registry.h"

namespace jx::tools {

// Fills the row of a file whose lock is held; returns exit bits.
using FileAction = std::function<int(const RegItem &item, Row &row)>;

// With `only`, the files of that protect mode alone.
void for_each_file(const CtlOptions &options, const Paths &paths, Report &report,
                   const FileAction &action, ProtectMode only = JX_PROTECT_INVALID);

// Mutating commands stop with exit 8 while a reboot is in progress; their dry
// runs go on, report what a run would do and note the reboot.
bool refuse_during_reboot(const CtlOptions &options, Report &report);

}  // namespace jx::tools
