#include <glib.h>

#include "frame/frame.h"
#include "jaxel.h"

namespace {
char g_jx_module_name[32];
}

extern "C" int32_t jx_set_module_name(const char *name) noexcept {
    if (name == nullptr) {
        return JX_ERR_PARAM1;
    }
    g_strlcpy(g_jx_module_name, name, sizeof g_jx_module_name);
    return JX_OK;
}

extern "C" const char *jx_get_module_name(void) noexcept { return g_jx_module_name; }
