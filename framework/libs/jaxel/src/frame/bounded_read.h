// Reading a file whole in bounded time and memory: whatever node sits at the
// path, the caller gets a regular file's bytes or an error, never a wait.
#pragma once

#include <cstddef>
#include <sys/types.h>

#include <glib.h>

namespace jx {

// A descriptor of path opened without blocking (a FIFO has no writer to wait
// for), or -1. When the open itself fails errno tells why and `error` is left
// unset; a node that is not a regular file sets `error`.
int open_regular(const char *path, GError **error, off_t *size = nullptr) noexcept;

// open_regular for a file about to be rewritten through the same descriptor:
// opened for reading and writing, never through a link at its end, and checked
// to lie inside /opt/ulx on the file actually opened.
int open_regular_for_update(const char *path, GError **error, off_t *size = nullptr) noexcept;

using RegularOpener = int (*)(const char *path, GError **error, off_t *size) noexcept;

// Whether path names a regular file itself (not a link, FIFO or device).
bool is_regular_file(const char *path) noexcept;

// Whether something other than a regular file of one link sits at path: a
// program the library runs would write through it.
bool is_odd_node(const char *path) noexcept;

// Reads at most `limit` bytes of the size the file had when fd was checked.
// `*data` is g_malloc'd and NUL-terminated one past `*len`.
bool read_regular_fd(int fd, const char *path, std::size_t limit, gchar **data, std::size_t *len,
                     GError **error) noexcept;

// open_regular, with the error read_regular_file gives when the open fails;
// size, when given, gets the length the file had when it was checked.
int open_regular_reporting(const char *path, GError **error, off_t *size = nullptr,
                           RegularOpener opener = open_regular) noexcept;

// Reads the first `want` bytes of fd into buf (`got` fewer when the file ends
// early), with the error read_regular_fd gives.
bool read_regular_into(int fd, const char *path, gchar *buf, std::size_t want, std::size_t &got,
                       GError **error) noexcept;

// Both, with the GFileError codes and texts g_file_get_contents gives for the
// same failure.
bool read_regular_file(const char *path, std::size_t limit, gchar **data, std::size_t *len,
                       GError **error) noexcept;

}  // namespace jx
