#include <cerrno>
#include <cstdint>

#include "frame/frame.h"
#include "registry/registry.h"

namespace jx {
namespace {

// As g_key_file_load_from_file, but a FIFO or device never blocks the load.
bool load_regular(GKeyFile *key, const char *path, GError **error) noexcept {
    const UniqueFd fd(open_regular(path, error));
    if (!fd) {
        const int e = errno;
        if (*error == nullptr) {
            g_set_error_literal(error, G_FILE_ERROR, g_file_error_from_errno(e), g_strerror(e));
        }
        return false;
    }
    gchar *raw = nullptr;
    std::size_t len = 0;
    if (!read_regular_fd(fd.get(), path, SIZE_MAX, &raw, &len, error)) {
        return false;
    }
    const GPtr<gchar> text(raw);
    return g_key_file_load_from_data(key, text.get(), len, G_KEY_FILE_NONE, error);
}

}  // namespace

GKeyFile *jx_load_key_file(const char *path) noexcept {
    KeyFilePtr key(g_key_file_new());
    GError *raw = nullptr;
    if (!load_regular(key.get(), path, &raw)) {
        const GErrorPtr error(raw);
        JX_LOG("g_key_file_load_from_file(%s) failed: %s.", base_name(path), error->message);
        return nullptr;
    }
    return key.release();
}

}  // namespace jx
