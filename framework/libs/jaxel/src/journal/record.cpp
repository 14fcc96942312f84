#include "journal/record.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <pthread.h>
#include <sys/random.h>
#include <unistd.h>

#include <atomic>
#include <utility>

namespace jx::redo {

namespace {

constexpr std::size_t kSignedHeaderSize = offsetof(Header, digest);

// The header up to its digest, then the entry table.
bool header_digest(const uint8_t *record, std::size_t table_size,
                   uint8_t out[kDigestSize]) noexcept {
    return sha256({{record, kSignedHeaderSize}, {record + sizeof(Header), table_size}}, out);
}

bool parse_hex(const char *hex, uint8_t out[kDigestSize]) noexcept {
    for (std::size_t i = 0; i < kDigestSize; ++i) {
        const int high = g_ascii_xdigit_value(hex[2 * i]);
        const int low = high < 0 ? -1 : g_ascii_xdigit_value(hex[2 * i + 1]);
        if (low < 0) {
            return false;
        }
        out[i] = static_cast<uint8_t>(high << 4 | low);
    }
    return true;
}

bool data_digest(const Transaction::Entry &in, uint8_t out[kDigestSize]) noexcept {
    if (in.digest_hex != nullptr && parse_hex(in.digest_hex, out)) {
        return true;
    }
    return sha256(in.data, in.len, out);
}

void draw_seed(uint64_t seed[2]) noexcept {
    if (getrandom(seed, 2 * sizeof seed[0], GRND_NONBLOCK) == 2 * sizeof seed[0]) {
        return;
    }
    seed[0] = static_cast<uint64_t>(g_get_real_time());
    seed[1] = static_cast<uint64_t>(getpid()) << 32 ^ g_random_int();
}

std::atomic<unsigned> fork_generation{1};

// Stale bytes of an earlier record must never validate as this one. Each
// thread counts on from a random start, drawn again after a fork so parent and
// child never share a value; one draw per thread spares a call per record.
void fill_nonce(uint8_t nonce[kNonceSize]) noexcept {
    static const int hooked =
        pthread_atfork(nullptr, nullptr, [] { fork_generation.fetch_add(1); });
    (void)hooked;
    thread_local unsigned drawn_in = 0;
    thread_local uint64_t seed[2] = {};
    thread_local uint64_t counter = 0;
    const unsigned generation = fork_generation.load();
    if (drawn_in != generation) {
        draw_seed(seed);
        counter = 0;
        drawn_in = generation;
    }
    const uint64_t parts[2] = {seed[0], seed[1] + ++counter};
    static_assert(sizeof parts == kNonceSize);
    std::memcpy(nonce, parts, kNonceSize);
}

bool fill_entry(const Transaction::Entry &in, Entry &out) noexcept {
    if (g_strlcpy(out.path, in.path, sizeof out.path) >= sizeof out.path) {
        return false;
    }
    out.kind = in.is_write ? kWrite : kUnlink;
    out.may_create = in.may_create ? 1 : 0;
    out.offset = in.offset;
    out.length = in.is_write ? in.len : 0;
    out.final_size = in.final_size;
    return !in.is_write || data_digest(in, out.data_digest);
}

}  // namespace

namespace {

GPtr<uint8_t> record_buffer(std::size_t count, std::size_t length, Reserved &reserved) noexcept {
    if (reserved.buf && reserved.entries == count && reserved.size >= length) {
        std::memset(reserved.buf.get(), 0, sizeof(Header) + count * sizeof(Entry));
        return std::move(reserved.buf);
    }
    GPtr<uint8_t> buf(static_cast<uint8_t *>(g_try_malloc0(length)));
    if (!buf) {
        errno = ENOMEM;
    }
    return buf;
}

}  // namespace

GPtr<uint8_t> encode(const Transaction::Entry *entries, std::size_t count, std::size_t &length,
                     Reserved reserved) noexcept {
    const std::size_t table_size = count * sizeof(Entry);
    length = sizeof(Header) + table_size;
    for (std::size_t i = 0; i < count; ++i) {
        length += entries[i].is_write ? entries[i].len : 0;
    }
    GPtr<uint8_t> buf = record_buffer(count, length, reserved);
    if (!buf) {
        return nullptr;
    }
    auto *table = reinterpret_cast<Entry *>(buf.get() + sizeof(Header));
    uint8_t *data = buf.get() + sizeof(Header) + table_size;
    for (std::size_t i = 0; i < count; ++i) {
        if (!fill_entry(entries[i], table[i])) {
            errno = ENAMETOOLONG;
            return nullptr;
        }
        if (table[i].length != 0) {
            if (entries[i].data != data) {
                std::memcpy(data, entries[i].data, table[i].length);
            }
            data += table[i].length;
        }
    }
    auto *header = reinterpret_cast<Header *>(buf.get());
    std::memcpy(header->magic, kMagic, sizeof kMagic);
    header->version = kVersion;
    header->entry_count = static_cast<uint32_t>(count);
    fill_nonce(header->nonce);
    header->total_length = length;
    if (!header_digest(buf.get(), table_size, header->digest)) {
        errno = EIO;
        return nullptr;
    }
    return buf;
}

namespace {

bool entry_well_formed(const Entry &entry) noexcept {
    const bool kind_known = entry.kind == kWrite || entry.kind == kUnlink;
    const bool path_ended = std::memchr(entry.path, '\0', sizeof entry.path) != nullptr;
    return kind_known && path_ended && entry.path[0] == '/' && entry.length <= entry.final_size &&
           entry.offset <= entry.final_size - entry.length;
}

// The table's entries are well formed and their data fills the rest exactly.
bool table_fits(const Entry *table, std::size_t count, std::size_t data_size) noexcept {
    uint64_t used = 0;
    for (std::size_t i = 0; i < count; ++i) {
        if (!entry_well_formed(table[i]) || table[i].length > data_size - used) {
            return false;
        }
        used += table[i].length;
    }
    return used == data_size;
}

bool data_matches(const Entry *table, std::size_t count, const uint8_t *data) noexcept {
    for (std::size_t i = 0; i < count; ++i) {
        uint8_t digest[kDigestSize];
        if (table[i].kind == kWrite &&
            (!sha256(data, table[i].length, digest) ||
             std::memcmp(digest, table[i].data_digest, kDigestSize) != 0)) {
            return false;
        }
        data += table[i].length;
    }
    return true;
}

}  // namespace

View view_of(const uint8_t *buf) noexcept {
    const auto *header = reinterpret_cast<const Header *>(buf);
    const std::size_t table_size = header->entry_count * sizeof(Entry);
    return {reinterpret_cast<const Entry *>(buf + sizeof(Header)), header->entry_count,
            buf + sizeof(Header) + table_size};
}

bool decode(const uint8_t *buf, std::size_t len, View &out) noexcept {
    Header header;
    if (len < sizeof header) {
        return false;
    }
    std::memcpy(&header, buf, sizeof header);
    if (std::memcmp(header.magic, kMagic, sizeof kMagic) != 0 || header.version != kVersion ||
        header.total_length != len || header.entry_count == 0 ||
        header.entry_count > Transaction::kMaxEntries) {
        return false;
    }
    const std::size_t table_size = header.entry_count * sizeof(Entry);
    uint8_t digest[kDigestSize];
    if (len < sizeof header + table_size || !header_digest(buf, table_size, digest) ||
        std::memcmp(digest, header.digest, kDigestSize) != 0) {
        return false;
    }
    const auto *table = reinterpret_cast<const Entry *>(buf + sizeof header);
    const uint8_t *data = buf + sizeof header + table_size;
    if (!table_fits(table, header.entry_count, len - sizeof header - table_size) ||
        !data_matches(table, header.entry_count, data)) {
        return false;
    }
    out = {table, header.entry_count, data};
    return true;
}

}  // namespace jx::redo
