// The table index beside GKeyFile on the same table file: each side answers
// with whether the table loads, the lookup's row for the probe, the group
// count and whether registration finds the probe listed (src or dst), in one
// string, so that equal strings mean equal answers.
#pragma once

#include <string>

#include "registry/registry.h"

namespace jx::test {

std::string table_by_key_file(const char *path, const char *probe);
std::string table_by_index(RegIndex &index, const char *path, const char *probe);

}  // namespace jx::test
