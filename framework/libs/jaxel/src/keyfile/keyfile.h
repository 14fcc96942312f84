// Managed key files: writing one back with its side file, and the check of
// the strings put into one. Opening and closing are recovery's checked open.
// Uses the frame, integrity and recovery.
#pragma once

#include <cstdint>

#include <glib.h>

namespace jx {

// Writes the key file's text over path, synced, then records its side file.
int32_t writeback_key_file(GKeyFile *key, const char *path) noexcept;

// 1 for printable ASCII only (space included, the empty string allowed), else 0.
int key_file_string_valid(const char *s) noexcept;

}  // namespace jx
