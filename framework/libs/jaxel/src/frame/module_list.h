// The process's list of registered module files, and the module's own name.
#pragma once

#include <cstddef>
#include <cstdint>

#include <glib.h>

#include "jaxel.h"

namespace jx {

// Items in registration order; extended only during start-up and never freed.
extern GSList *g_jx_reg_list;

// Short names that agree in their first 64 characters name the same file.
inline constexpr std::size_t kItemNameCompareLength = 64;

// The first item whose short name agrees with `short_name`, or null.
JxModuleItem *jx_find_module_item(const char *short_name) noexcept;

// Appends an item that the list then owns for the life of the process.
void jx_append_module_item(JxModuleItem *item) noexcept;

int32_t set_module_name(const char *name) noexcept;
const char *module_name() noexcept;

// tier directory + module_name + "_" + short_name, cut to size; nothing on a
// bad argument.
void file_path_of(const char *short_name, const char *module_name, uint32_t tier, char *buf,
                  uint32_t size) noexcept;

}  // namespace jx
