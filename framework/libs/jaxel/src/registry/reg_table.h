// The one place that parses the registration table, so that the parser can be
// replaced without touching the lookup or its callers.
#pragma once

#include "registry/registry.h"

namespace jx {

// Reads the table file whole and fills `out` from the first group whose `src`
// is exactly `src` and whose letter names a protect mode; groups of any other
// letter are passed over. False when no group matches or the table cannot be
// read (the latter logged).
bool jx_find_reg_group(const char *table_path, const char *src, RegItem &out) noexcept;

}  // namespace jx
