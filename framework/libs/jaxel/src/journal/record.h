// The redo record's layout: a header, a table of fixed-size entries, then the
// data of every write entry in table order. The header digest covers the
// header up to it and the whole table, so a record only validates when it was
// written whole by the transaction whose nonce it carries.
#pragma once

#include <cstddef>
#include <cstdint>
#include <sys/types.h>

#include "frame/frame.h"
#include "journal/journal.h"

namespace jx::redo {

inline constexpr char kMagic[8] = {'J', 'X', 'R', 'E', 'D', 'O', '\r', '\n'};
inline constexpr uint32_t kVersion = 1;
inline constexpr std::size_t kDigestSize = kSha256Size;
inline constexpr std::size_t kNonceSize = 16;

enum EntryKind : uint32_t { kWrite = 1, kUnlink = 2 };

struct Header {
    char magic[8];
    uint32_t version;
    uint32_t entry_count;
    uint8_t nonce[kNonceSize];
    uint64_t total_length;
    uint8_t digest[kDigestSize];
};

struct Entry {
    uint32_t kind;
    uint32_t may_create;
    uint64_t offset;
    uint64_t length;
    uint64_t final_size;
    uint8_t data_digest[kDigestSize];
    char path[kPathMax];
};

inline constexpr char kRecordDir[] = "/opt/ulx/pram/.jaxel-redo/";

// A buffer laid out for a record of `entries` entries, `size` bytes in all.
struct Reserved {
    GPtr<uint8_t> buf;
    std::size_t entries = 0;
    std::size_t size = 0;
};

// Builds the record of the entries into one g_malloc'd buffer, the reserved
// one when it fits (data already in place there is not copied); null when out
// of memory, a path does not fit or a digest cannot be computed.
GPtr<uint8_t> encode(const Transaction::Entry *entries, std::size_t count, std::size_t &length,
                     Reserved reserved = {}) noexcept;

// A validated record over a caller-owned buffer.
struct View {
    const Entry *entries = nullptr;
    std::size_t count = 0;
    const uint8_t *data = nullptr;  // the first entry's data
};

// True when the buffer holds exactly one whole record with matching digests.
bool decode(const uint8_t *buf, std::size_t len, View &out) noexcept;

// The view of a record this process just encoded; nothing is checked.
View view_of(const uint8_t *buf) noexcept;

// A target the caller holds open for update, written through its descriptor.
struct Held {
    const char *path = nullptr;
    int fd = -1;
};

// Writes every entry of the view in place; 0, or -1 with errno.
int apply(const View &view, Held held = {}) noexcept;

// A failed apply worth keeping the record for: the file system may recover
// from it, while a target that cannot be reached never will.
bool worth_retrying(int error) noexcept;

// Makes the record directory durable where it is missing; 0 or -1 with errno.
int make_record_dir() noexcept;

// True when no record exists at all. Known without a system call while the
// census vouches for it, else from one look at the record directory (which
// then lets the census vouch again): on tmpfs its size counts its entries.
bool no_record_at_all() noexcept;

// The census, shared by the processes of one boot through kCensusPath, lets
// every call skip the pending check without a system call. A record may exist
// only while the call that made it is in flight or after a mark; a mark is
// settled once the record directory is seen empty after it.
inline constexpr char kCensusPath[] = "/opt/ulx/pram/.jaxel-redo.census";
struct Census;

// True when the census vouches that no record exists; no system call.
bool census_says_none() noexcept;
// True while some call is between making its record and removing it, or when
// there is no census to ask.
bool census_busy() noexcept;
// The marks so far: read before looking at the directory, then handed to
// census_seen_empty when it held no entry.
uint32_t census_marks() noexcept;
void census_seen_empty(uint32_t marks_before) noexcept;

// Held by the call that makes a record, from before it exists until it is
// removed; a record the call could not remove is marked on the way out.
class RecordInFlight {
public:
    RecordInFlight() noexcept;
    ~RecordInFlight();
    RecordInFlight(const RecordInFlight &) = delete;
    RecordInFlight &operator=(const RecordInFlight &) = delete;
    void gone(bool removed) noexcept { gone_ = removed; }

private:
    Census *census_;
    bool gone_ = false;
};

// Unmaps the census, so the next call maps the file that is there now.
void forget_census() noexcept;

// The record file of a target: named from a digest of its canonical path.
Path record_path(const char *target) noexcept;

// Opens the record file and locks it, retrying when it was unlinked while we
// waited. With create, makes it (and its directory); without wait, fails with
// EWOULDBLOCK while another call holds it. size, when given, gets its length.
UniqueFd open_locked(const char *record, bool create, bool wait, off_t *size = nullptr) noexcept;

// Applies a valid record held in the locked descriptor, drops an invalid one,
// then removes the record file. 0 when nothing stays pending.
int finish(int fd, const char *record) noexcept;

// Unlinks the record file and makes that durable.
int remove_record(const char *record) noexcept;

}  // namespace jx::redo
