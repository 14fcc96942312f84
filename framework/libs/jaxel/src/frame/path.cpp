#include "frame/path.h"

#include <cstring>

#include <glib.h>

namespace jx {

Path make_path(std::initializer_list<const char *> parts) noexcept {
    Path path;
    for (const char *part : parts) {
        if (part != nullptr) {
            g_strlcat(path.text, part, sizeof path.text);
        }
    }
    return path;
}

Path parent_of(const char *path) noexcept {
    Path dir;
    const char *slash = std::strrchr(path, '/');
    if (slash == nullptr) {
        dir.text[0] = '.';
        return dir;
    }
    const std::size_t len = slash == path ? 1 : static_cast<std::size_t>(slash - path);
    g_strlcpy(dir.text, path, len + 1 < sizeof dir.text ? len + 1 : sizeof dir.text);
    return dir;
}

const char *base_name(const char *path) noexcept {
    if (path == nullptr) {
        return "";
    }
    const char *slash = std::strrchr(path, '/');
    return slash == nullptr ? path : slash + 1;
}

bool has_prefix(const char *path, const char *prefix) noexcept {
    return path != nullptr && std::strncmp(path, prefix, std::strlen(prefix)) == 0;
}

}  // namespace jx
