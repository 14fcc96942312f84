// The registration table: its record of a file, its lookup and the loading of
// key files. Uses only the frame.
#pragma once

#include <cstdint>

#include <glib.h>

#include "jaxel.h"

namespace jx {

// One group of the registration table, as a lookup yields it.
struct RegItem {
    char src[256];
    char dst[256];
    char bak[256];
    char crc[256];
    char bakcrc[256];
    ProtectMode protect_mode;
    JxPrivilege privilege;
    const char *callback_obj;     // borrowed; set only by item registration
    const char *callback_method;  // borrowed; set only by item registration
};

// Loads any key file; null (after logging why) when it cannot be loaded.
GKeyFile *jx_load_key_file(const char *path) noexcept;

// The table's record of the working file `name`, g_malloc'd for the caller to
// g_free; null when the file is not registered or the table cannot be read.
RegItem *get_reg_inter_info(const char *name) noexcept;

// The text of the table group numbered `number` for record, as registration
// appends it; g_malloc'd for the caller to g_free.
gchar *reg_group_text(const RegItem &record, int number) noexcept;

}  // namespace jx
