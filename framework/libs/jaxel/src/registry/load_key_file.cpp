#include "frame/frame.h"
#include "registry/registry.h"

namespace jx {

GKeyFile *jx_load_key_file(const char *path) noexcept {
    KeyFilePtr key(g_key_file_new());
    GError *raw = nullptr;
    if (!g_key_file_load_from_file(key.get(), path, G_KEY_FILE_NONE, &raw)) {
        const GErrorPtr error(raw);
        JX_LOG("g_key_file_load_from_file(%s) failed: %s.", base_name(path), error->message);
        return nullptr;
    }
    return key.release();
}

}  // namespace jx
