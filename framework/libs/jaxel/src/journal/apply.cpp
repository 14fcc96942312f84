#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "journal/record.h"

namespace jx::redo {
namespace {

constexpr int kTargetFlags = O_WRONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
// Created targets get the mode a plain fopen would give them.
constexpr mode_t kCreateMode = 0666;

bool write_all(int fd, const uint8_t *data, uint64_t length, uint64_t offset) noexcept {
    while (length > 0) {
        const ssize_t n = io().pwrite(fd, data, length, static_cast<off_t>(offset));
        if (n <= 0) {
            if (n == 0) {
                errno = ENOSPC;
            }
            return false;
        }
        data += n;
        offset += static_cast<uint64_t>(n);
        length -= static_cast<uint64_t>(n);
    }
    return true;
}

// A file that the write left exactly at its final size needs no truncation.
bool truncate_to_final(int fd, const struct stat &before, const Entry &entry) noexcept {
    const uint64_t written_end = entry.offset + entry.length;
    const uint64_t size = std::max(static_cast<uint64_t>(before.st_size), written_end);
    return size == entry.final_size ||
           io().ftruncate(fd, static_cast<off_t>(entry.final_size)) == 0;
}

UniqueFd open_target(const Entry &entry, bool &created) noexcept {
    UniqueFd fd(io().open(entry.path, kTargetFlags, 0));
    if (!fd && errno == ENOENT && entry.may_create != 0) {
        fd.reset(io().open(entry.path, kTargetFlags | O_CREAT, kCreateMode));
        created = true;
    }
    return fd;
}

// In place, never a rename: other processes' locks and streams stay on the
// live inode. Fixed offsets and sizes make a second run harmless.
int apply_write(const Entry &entry, const uint8_t *data, const Held &held) noexcept {
    bool created = false;
    const bool is_held = held.fd >= 0 && std::strcmp(held.path, entry.path) == 0;
    const UniqueFd opened = is_held ? UniqueFd() : open_target(entry, created);
    const int fd = is_held ? held.fd : opened.get();
    struct stat st {};
    if (fd >= 0 && (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || st.st_nlink > 1)) {
        errno = EPERM;
        return -1;
    }
    if (fd < 0 || !write_all(fd, data, entry.length, entry.offset) ||
        !truncate_to_final(fd, st, entry) || io().fsync(fd) != 0) {
        return -1;
    }
    return created ? sync_parent_directory(entry.path) : 0;
}

int apply_unlink(const Entry &entry) noexcept {
    if (io().unlink(entry.path) != 0) {
        return errno == ENOENT ? 0 : -1;
    }
    return sync_parent_directory(entry.path);
}

}  // namespace

int apply(const View &view, Held held) noexcept {
    const uint8_t *data = view.data;
    for (std::size_t i = 0; i < view.count; ++i) {
        const Entry &entry = view.entries[i];
        const int rc = entry.kind == kWrite ? apply_write(entry, data, held) : apply_unlink(entry);
        if (rc != 0) {
            return -1;
        }
        data += entry.length;
    }
    return 0;
}

bool worth_retrying(int error) noexcept {
    switch (error) {
    case ENOENT:
    case ENOTDIR:
    case EISDIR:
    case ELOOP:
    case ENAMETOOLONG: return false;
    default: return true;
    }
}

}  // namespace jx::redo
