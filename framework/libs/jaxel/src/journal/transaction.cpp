#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>

#include "frame/bounded_read.h"
#include "journal/record.h"

namespace jx {
namespace {

// Written whole with one call, then the record and its directory entry are
// synced: after that the call's new state survives any crash.
int make_durable(int fd, const char *record, const uint8_t *buf, std::size_t len) noexcept {
    const ssize_t written = io().write(fd, buf, len);
    if (written != static_cast<ssize_t>(len)) {
        if (written >= 0) {
            errno = ENOSPC;
        }
        return -1;
    }
    if (io().fsync(fd) != 0) {
        return -1;
    }
    return sync_parent_directory(record);
}

// A record left by a crashed call is finished (which unlinks it) before ours
// takes its name in a fresh file.
UniqueFd open_empty_record(const char *record) noexcept {
    for (;;) {
        off_t size = 0;
        UniqueFd fd = redo::open_locked(record, true, true, &size);
        if (!fd) {
            return UniqueFd();
        }
        if (size == 0) {
            return fd;
        }
        if (redo::finish(fd.get(), record) != 0) {
            return UniqueFd();
        }
    }
}

// A link, FIFO, device or second hard link where a target belongs would carry
// the write to a file the library does not own.
bool targets_are_plain(const Transaction::Entry *entries, std::size_t count,
                       const char *held) noexcept {
    for (std::size_t i = 0; i < count; ++i) {
        const bool checked = held != nullptr && std::strcmp(held, entries[i].path) == 0;
        if (entries[i].is_write && !checked && is_odd_node(entries[i].path)) {
            errno = EPERM;
            return false;
        }
    }
    return true;
}

}  // namespace

void Transaction::write(const char *path, const void *data, std::size_t len, bool may_create,
                        const char *digest_hex) noexcept {
    if (count_ == kMaxEntries) {
        overflow_ = true;
        return;
    }
    entries_[count_++] = {true, may_create, path, data, len, digest_hex, 0, len};
}

void Transaction::write_at(const char *path, uint64_t offset, const void *data, std::size_t len,
                           uint64_t final_size) noexcept {
    if (count_ == kMaxEntries) {
        overflow_ = true;
        return;
    }
    entries_[count_++] = {true, false, path, data, len, nullptr, offset, final_size};
}

uint8_t *Transaction::reserve(std::size_t entry_count, std::size_t data_len) noexcept {
    const std::size_t head = sizeof(redo::Header) + entry_count * sizeof(redo::Entry);
    reserved_.reset(static_cast<uint8_t *>(g_try_malloc(head + data_len)));
    reserved_entries_ = entry_count;
    reserved_len_ = reserved_ ? head + data_len : 0;
    return reserved_ ? reserved_.get() + head : nullptr;
}

void Transaction::hold(const char *path, int fd) noexcept {
    held_path_ = path;
    held_fd_ = fd;
}

void Transaction::remove(const char *path) noexcept {
    if (count_ == kMaxEntries) {
        overflow_ = true;
        return;
    }
    entries_[count_++] = {false, false, path, nullptr, 0, nullptr, 0, 0};
}

int Transaction::commit() noexcept {
    if (overflow_ || count_ == 0) {
        errno = EINVAL;
        return -1;
    }
    if (!targets_are_plain(entries_, count_, held_path_)) {
        return -1;
    }
    std::size_t len = 0;
    const GPtr<uint8_t> buf = redo::encode(
        entries_, count_, len, {std::move(reserved_), reserved_entries_, reserved_len_});
    if (!buf) {
        return -1;
    }
    const Path record = redo::record_path(entries_[0].path);
    redo::RecordInFlight flight;
    const UniqueFd fd = open_empty_record(record.c_str());
    if (!fd) {
        return -1;
    }
    if (make_durable(fd.get(), record.c_str(), buf.get(), len) != 0) {
        // Nothing was touched: the old state stays in place and valid.
        const int error = errno;
        flight.gone(redo::remove_record(record.c_str()) == 0);
        errno = error;
        return -1;
    }
    if (redo::apply(redo::view_of(buf.get()), {held_path_, held_fd_}) != 0) {
        const int error = errno;
        if (!redo::worth_retrying(error)) {
            flight.gone(redo::remove_record(record.c_str()) == 0);
        }
        errno = error;
        return -1;  // else the record stays: the next open finishes the call
    }
    // A record that outlives a crash here is applied again, to the same bytes.
    flight.gone(redo::remove_record(record.c_str()) == 0);
    return 0;
}

}  // namespace jx
