// Recovery of registered files: the engine that decides which copy is the
// truth, and the rebuild of a working copy from its durable copy.
#pragma once

#include <cstdint>

#include "registry/registry.h"

// Dispatches by protect mode; 0 repaired or sound, JX_ERR_NOT_FOUND nothing to
// recover from, any other code a failure.
int32_t jx_recover_dst_file(const RegItem *item) noexcept;
int32_t jx_recover_dst_file_in_pram(const RegItem *item) noexcept;
int32_t jx_recover_dst_file_in_fs(const RegItem *item) noexcept;
int32_t jx_recover_by_crc(const char *main, const char *main_crc, const char *bak,
                          const char *bak_crc) noexcept;

// Rebuilds the working copy `name` at open time; `item` may be null.
int32_t jx_file_recover_by_name(const char *name, const RegItem *item) noexcept;
// Rebuilds the working copy at registration and applies the privileges.
int32_t jx_file_recover(const RegItem *item) noexcept;
