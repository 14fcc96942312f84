// The process's list of registered module files, g_jx_reg_list.
#pragma once

#include <cstddef>

#include <glib.h>

#include "jaxel.h"

// Items in registration order; extended only during start-up and never freed.
extern GSList *g_jx_reg_list;

// Short names that agree in their first 64 characters name the same file.
inline constexpr std::size_t kItemNameCompareLength = 64;

// The first item whose short name agrees with `short_name`, or null.
JxModuleItem *jx_find_module_item(const char *short_name) noexcept;

// Appends an item that the list then owns for the life of the process.
void jx_append_module_item(JxModuleItem *item) noexcept;
