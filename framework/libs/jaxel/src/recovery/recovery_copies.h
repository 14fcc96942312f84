// The four files the recovery engine weighs against each other, read once so
// that the save-area branch and the comparison share one read of each.
#pragma once

#include <cstdint>
#include <unistd.h>

#include "integrity/integrity.h"
#include "registry/registry.h"

namespace jx {

struct CopyPaths {
    const char *main;
    const char *main_crc;
    const char *bak;
    const char *bak_crc;
};

// A file that cannot be read is absent: its data pointer is null.
struct CopySet {
    Content main;
    Content main_crc;
    Content bak;
    Content bak_crc;
};

inline bool present(const Content &copy) noexcept { return copy.data != nullptr; }

// Existence alone, for the branches that decide without reading.
inline bool file_exists(const char *path) noexcept { return ::access(path, F_OK) == 0; }

CopySet read_copies(const CopyPaths &paths) noexcept;

// Decides which copy is the truth and rewrites the other pair from it.
int32_t reconcile_copies(const CopyPaths &paths, const CopySet &copies) noexcept;

}  // namespace jx
