#include "frame/name_check.h"

#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <string_view>
#include <unistd.h>

#include <glib.h>

#include "frame/locations.h"
#include "frame/log.h"
#include "frame/path.h"

namespace jx {
namespace {

bool control_free(std::string_view text) {
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7f || c == '\\') {
            return false;
        }
    }
    return true;
}

// Calls `each` on every non-empty component of path; stops when it says no.
template <typename Each>
bool each_component(std::string_view path, Each &&each) {
    while (!path.empty()) {
        const std::size_t slash = path.find('/');
        const std::string_view part = path.substr(0, slash);
        if (!part.empty() && !each(part)) {
            return false;
        }
        path.remove_prefix(slash == std::string_view::npos ? path.size() : slash + 1);
    }
    return true;
}

}  // namespace

bool valid_table_text(const char *text) noexcept {
    if (text == nullptr || text[0] == '\0') {
        return true;
    }
    const std::string_view view(text);
    return g_utf8_validate(text, -1, nullptr) && control_free(view) && view.front() != ' ' &&
           view.back() != ' ';
}

bool valid_name(const char *name) noexcept {
    return name != nullptr && valid_table_text(name) && std::strchr(name, '/') == nullptr &&
           std::strcmp(name, ".") != 0 && std::strcmp(name, "..") != 0;
}

bool stays_inside(const char *path, const char *area) noexcept {
    const std::size_t area_len = std::strlen(area);
    if (path == nullptr || std::strncmp(path, area, area_len) != 0) {
        return false;
    }
    long depth = 0;
    return each_component(path + area_len, [&depth](std::string_view part) {
        if (part == "..") {
            return --depth >= 0;
        }
        depth += part == "." ? 0 : 1;
        return true;
    });
}

const char *refused_module_file(const char *short_name, const char *module_name) noexcept {
    if (!valid_name(short_name)) {
        return "short_name";
    }
    if (!valid_name(module_name)) {
        return "module_name";
    }
    const bool fit = fits(kPathMax, {kSaveDir, module_name, "_", short_name, ".bak.sha256"});
    return fit ? nullptr : "short_name";
}

bool climbs_out(const char *path, const char *area) noexcept {
    if (path == nullptr || std::strncmp(path, area, std::strlen(area)) != 0 ||
        stays_inside(path, area)) {
        return false;
    }
    JX_LOG("%s refused: the path leads out of %s.", base_name(path), area);
    return true;
}

namespace {

// The directory itself may be a link on some systems: inside is inside either
// form of it.
bool resolved_inside(const char *resolved) noexcept {
    if (has_prefix(resolved, kUlxDir)) {
        return true;
    }
    ResolvedPath root;
    const char *real_root = resolved_or_given(kUlxDir, root);
    const std::size_t root_len = std::strlen(real_root);
    return std::strncmp(resolved, real_root, root_len) == 0 &&
           (resolved[root_len] == '/' || resolved[root_len] == '\0');
}

bool refuse_outside(const char *path) noexcept {
    JX_LOG("%s refused: a link leads out of %s.", base_name(path), kUlxDir);
    return true;
}

}  // namespace

bool leads_outside(const char *path) noexcept {
    ResolvedPath resolved;
    return has_prefix(path, kUlxDir) && leads_outside(path, resolved_or_given(path, resolved));
}

bool leads_outside(const char *path, const char *resolved) noexcept {
    return has_prefix(path, kUlxDir) && !resolved_inside(resolved) && refuse_outside(path);
}

// One readlink of the descriptor instead of one per component of the path,
// and no window between the check and the file it was made on.
bool opened_outside(int fd, const char *path) noexcept {
    if (!has_prefix(path, kUlxDir)) {
        return false;
    }
    char link[32];
    g_snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    ResolvedPath actual;
    const ssize_t n = ::readlink(link, actual.text, sizeof actual.text - 1);
    if (n <= 0 || static_cast<std::size_t>(n) >= sizeof actual.text - 1) {
        return leads_outside(path);  // no /proc here: walk the path
    }
    actual.text[n] = '\0';
    return !resolved_inside(actual.text) && refuse_outside(path);
}

const char *resolved_or_given(const char *path, ResolvedPath &out) noexcept {
    return ::realpath(path, out.text) != nullptr ? out.text : path;
}

bool valid_absolute_path(const char *path) noexcept {
    return path != nullptr && path[0] == '/' && valid_table_text(path) &&
           each_component(path, [](std::string_view part) { return part != ".."; });
}

bool fits(std::size_t size, std::initializer_list<const char *> parts) noexcept {
    std::size_t total = 0;
    for (const char *part : parts) {
        total += part == nullptr ? 0 : std::strlen(part);
    }
    return total < size;
}

}  // namespace jx
