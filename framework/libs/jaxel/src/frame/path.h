// Fixed-size path buffers: every path the library forms is cut to 255
// characters, the size of the path fields in its records.
#pragma once

#include <cstddef>
#include <initializer_list>

namespace jx {

inline constexpr std::size_t kPathMax = 256;

struct Path {
    char text[kPathMax] = {};
    const char *c_str() const noexcept { return text; }
    bool empty() const noexcept { return text[0] == '\0'; }
};

// Joins the parts in order, truncating at 255 characters.
Path make_path(std::initializer_list<const char *> parts) noexcept;

// The directory part of a path ("." when it holds no "/", "/" for a root entry).
Path parent_of(const char *path) noexcept;

// The text after the last "/", or the whole path when it holds none.
const char *base_name(const char *path) noexcept;

// True when path begins with prefix, compared byte for byte over its length.
bool has_prefix(const char *path, const char *prefix) noexcept;

}  // namespace jx
