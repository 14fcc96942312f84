// The commands of jaxelctl; each fills the report and its exit bits.
#pragma once

#include <vector>

#include "ctl.h"

namespace jx::tools {

using Paths = std::vector<const char *>;

void run_status(const CtlOptions &options, const Paths &paths, Report &report);
void run_verify(const CtlOptions &options, const Paths &paths, Report &report);
void run_repair(const CtlOptions &options, const Paths &paths, Report &report);
void run_sync(const CtlOptions &options, const Paths &paths, Report &report);
void run_factory(const CtlOptions &options, const Paths &args, Report &report);
void run_table_check(const CtlOptions &options, Report &report);

}  // namespace jx::tools
