#include <glib.h>

#include "frame/frame.h"

namespace jx {
namespace {
char g_jx_module_name[32];
}

int32_t set_module_name(const char *name) noexcept {
    if (name == nullptr) {
        return JX_REFUSE(JX_ERR_PARAM1, "name");
    }
    if (!valid_name(name)) {
        JX_LOG("module name refused: not a plain file name.");
        return JX_ERR_PARAM1;
    }
    g_strlcpy(g_jx_module_name, name, sizeof g_jx_module_name);
    return JX_OK;
}

const char *module_name() noexcept { return g_jx_module_name; }

}  // namespace jx
