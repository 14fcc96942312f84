// Redo records: every mutating call first makes one record durable that holds
// the complete new state of each file it touches, then rewrites the files in
// place and removes the record. A crash leaves either no record (old or new
// state in full) or a valid record that the next open or start-up applies
// again; a torn record never validates and is dropped. Uses the frame.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "frame/frame.h"

namespace jx {

// Collects the files of one call and commits them as one record. One process
// never runs two transactions on one target at a time.
class Transaction {
public:
    static constexpr std::size_t kMaxEntries = 4;

    // The whole new content of path; digest_hex, when given, is the SHA-256
    // the caller already holds for data (64 lowercase hex digits).
    void write(const char *path, const void *data, std::size_t len, bool may_create,
               const char *digest_hex = nullptr) noexcept;
    // len bytes at offset of an existing file, which ends up final_size long:
    // a change that leaves the rest of the file as it is.
    void write_at(const char *path, uint64_t offset, const void *data, std::size_t len,
                  uint64_t final_size) noexcept;
    void remove(const char *path) noexcept;
    // path is open for update in fd (open_regular_for_update, checked there):
    // the commit writes it through fd, which stays the caller's, instead of
    // checking and opening it again.
    void hold(const char *path, int fd) noexcept;

    // Room inside the buffer the record is written from for the data of a
    // record of entry_count entries, in table order: content built there and
    // passed to write() is never copied. Null when out of memory.
    uint8_t *reserve(std::size_t entry_count, std::size_t data_len) noexcept;

    // 0 when every file holds its new state; -1 with errno otherwise. When
    // the record could not be made durable nothing was touched.
    int commit() noexcept;

    struct Entry {
        bool is_write = false;
        bool may_create = false;
        const char *path = nullptr;
        const void *data = nullptr;
        std::size_t len = 0;
        const char *digest_hex = nullptr;
        uint64_t offset = 0;
        uint64_t final_size = 0;
    };

private:
    Entry entries_[kMaxEntries];
    std::size_t count_ = 0;
    bool overflow_ = false;
    GPtr<uint8_t> reserved_;
    std::size_t reserved_entries_ = 0;
    std::size_t reserved_len_ = 0;
    const char *held_path_ = nullptr;
    int held_fd_ = -1;
};

// A private file beside the records where an outside program builds the new
// content of a target (an archive, a copy) before a transaction carries it
// over. It is locked while it exists, so start-up removes only what a crash
// left behind; one left for the same target is reused.
class Staging {
public:
    // kind tells apart the stagings of one target ("tar.gz", "copy").
    Staging(const char *target, const char *kind) noexcept;
    ~Staging();
    Staging(const Staging &) = delete;
    Staging &operator=(const Staging &) = delete;

    explicit operator bool() const noexcept { return static_cast<bool>(fd_); }
    const char *path() const noexcept { return path_.c_str(); }

private:
    Path path_;
    UniqueFd fd_;
};

// Finishes a record left for path by a crashed call: a valid one is applied
// again, an invalid one dropped. Waits while a live call holds it.
// 0 when nothing is pending any more.
int recover_pending(const char *path) noexcept;

// Start-up: finishes every record no live process holds and removes the
// stagings no live process holds.
void recover_all() noexcept;

// Where the record for target lives (it need not exist).
std::string redo_record_path(const char *target);

}  // namespace jx
