// Checks on names and paths that come from callers, made before anything is
// created: a name must not reach outside its directory, a path must not climb
// out of its area, and nothing may reach the table that GLib would read back
// differently.
#pragma once

#include <cstddef>
#include <initializer_list>

namespace jx {

// A module or short name: no control character, no '/', not "." or "..",
// nothing the table would alter.
bool valid_name(const char *name) noexcept;

// A value for the table: valid UTF-8 without control characters or
// backslashes, not starting or ending with a blank. Null passes (not written).
bool valid_table_text(const char *text) noexcept;

// True when path begins with area and its ".." components never climb above
// area once "." and empty components are dropped.
bool stays_inside(const char *path, const char *area) noexcept;

// True, after logging, when path begins with area but climbs out of it.
bool climbs_out(const char *path, const char *area) noexcept;

// True, after logging, when path lies under /opt/ulx/ but resolves (through a
// link) to a place outside it: such a path is never written, read or chmod'ed.
bool leads_outside(const char *path) noexcept;
// The same, for a path its caller resolved already (resolved_or_given).
bool leads_outside(const char *path, const char *resolved) noexcept;

// The same test made on the file fd has open, for a path that was opened
// without following a link at its end.
bool opened_outside(int fd, const char *path) noexcept;

// The path with its links resolved, in `out`; the path itself when it cannot be
// resolved (it does not exist yet).
struct ResolvedPath {
    char text[4096];
};
const char *resolved_or_given(const char *path, ResolvedPath &out) noexcept;

// An absolute path that is valid table text and holds no ".." component.
bool valid_absolute_path(const char *path) noexcept;

// The argument ("short_name" or "module_name") that cannot name a module file:
// not a plain name, or too long for every path registration derives from
// them; null when both can.
const char *refused_module_file(const char *short_name, const char *module_name) noexcept;

// Whether the strings, joined, fit a buffer of `size` bytes with their NUL.
bool fits(std::size_t size, std::initializer_list<const char *> parts) noexcept;

}  // namespace jx
