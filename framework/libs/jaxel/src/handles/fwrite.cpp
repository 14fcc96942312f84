#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>

#include <utility>

#include "frame/bounded_read.h"
#include "frame/frame.h"
#include "handles/handle_write.h"
#include "handles/handles.h"
#include "integrity/integrity.h"
#include "journal/journal.h"

namespace jx {
namespace {

bool is_protected(const JxFile *stream) noexcept {
    if (stream->item == nullptr) {
        return false;
    }
    switch (stream->item->protect_mode) {
    case JX_PROTECT_R:
    case JX_PROTECT_E:
    case JX_PROTECT_S:
    case JX_PROTECT_P: return true;
    default: return false;
    }
}

bool is_read_only(const char *mode) noexcept {
    return std::strcmp(mode, "r") == 0 || std::strcmp(mode, "rb") == 0;
}

bool appends(const JxFile *stream) noexcept { return stream->mode[0] == 'a'; }

// Where the bytes go: the stream position, or the end for append handles.
bool write_position(const JxFile *stream, uint64_t content_len, uint64_t &position) noexcept {
    if (appends(stream)) {
        position = content_len;
        return true;
    }
    const long at = std::ftell(stream->fd);
    if (at < 0) {
        JX_LOG_ERRNO_SPACED("ftell", base_name(stream->file_path));
        return false;
    }
    position = static_cast<uint64_t>(at);
    return true;
}

bool log_unread(const char *path, GError *raw) noexcept {
    const GErrorPtr error(raw);
    JX_LOG("g_file_get_contents(%s) failed: %s.", base_name(path), error->message);
    return false;
}

// Where the old content is read from; `fd` is either `owned` or the stream's.
struct OldContent {
    UniqueFd owned;
    int fd = -1;
    uint64_t len = 0;
    bool held = false;  // the commit may write through fd
};

// A stream that reads and writes without appending has the file itself open:
// its descriptor serves the read and the commit once the path is seen to
// name that same file, not a link, FIFO or second hard link.
bool use_stream_descriptor(const JxFile *stream, OldContent &old) noexcept {
    const char *mode = stream->mode;
    struct stat held;
    struct stat named;
    if ((mode[0] != 'r' && mode[0] != 'w') || std::strchr(mode, '+') == nullptr ||
        ::fstat(stream->file_no, &held) != 0 || ::lstat(stream->file_path, &named) != 0 ||
        held.st_dev != named.st_dev || held.st_ino != named.st_ino || !S_ISREG(named.st_mode) ||
        named.st_nlink > 1) {
        return false;
    }
    old = {UniqueFd(), stream->file_no, static_cast<uint64_t>(held.st_size), true};
    return true;
}

// Otherwise the file is opened for update, so that the commit writes through
// it; one that cannot be opened so (no write access, a link) is read as before
// and left to the commit to judge. Checked as a whole-file read checks it.
bool open_old_content(const JxFile *stream, OldContent &old) noexcept {
    const char *path = stream->file_path;
    if (!use_stream_descriptor(stream, old)) {
        GError *error = nullptr;
        off_t size = 0;
        old.owned.reset(open_regular_for_update(path, &error, &size));
        old.held = static_cast<bool>(old.owned);
        if (!old.owned && error == nullptr) {
            old.owned.reset(open_regular_reporting(path, &error, &size));
        }
        if (!old.owned) {
            return log_unread(path, error);
        }
        old.fd = old.owned.get();
        old.len = static_cast<uint64_t>(size);
    }
    return old.len <= UINT32_MAX ||
           log_unread(path,
                      g_error_new_literal(G_FILE_ERROR, G_FILE_ERROR_FAILED, "file too large"));
}

// The new content, built where the record will carry it: the old bytes are
// read straight into the record buffer, so a large write needs one buffer and
// no copy. Room is left after it for the side file. `end` is where the new
// bytes stop.
char *build_in_record(const WriteRequest &request, Transaction &transaction, OldContent &old,
                      uint64_t &len, uint64_t &end) noexcept {
    JxFile *stream = request.stream;
    uint64_t position = 0;
    if (!open_old_content(stream, old) || !write_position(stream, old.len, position)) {
        return nullptr;
    }
    const uint64_t count = static_cast<uint64_t>(request.size) * request.n;
    if (position + count > UINT32_MAX) {
        JX_LOG("fwrite %s (sz %u count %u) failed: end %llu beyond 4 GiB.",
               base_name(stream->file_path), request.size, request.n,
               static_cast<unsigned long long>(position + count));
        return nullptr;
    }
    auto *content = reinterpret_cast<char *>(
        transaction.reserve(2, std::max(old.len, position + count) + kChecksumFileSize));
    if (content == nullptr) {
        JX_LOG("g_malloc0 failed.");
        return nullptr;
    }
    GError *error = nullptr;
    std::size_t got = 0;
    if (old.fd >= 0 &&
        !read_regular_into(old.fd, stream->file_path, content, old.len, got, &error)) {
        log_unread(stream->file_path, error);
        return nullptr;
    }
    if (old.held) {
        transaction.hold(stream->file_path, old.fd);
    }
    position = appends(stream) ? got : position;  // a file cut short under us ends earlier
    end = position + count;
    len = std::max<uint64_t>(got, end);
    std::memset(content + got, 0, len - got);
    std::memcpy(content + position, request.ptr, count);
    return content;
}

// The whole new content goes through the checked rewrite, which changes it
// together with its side file.
int32_t protected_write(const WriteRequest &request) noexcept {
    JxFile *stream = request.stream;
    // A read-only handle writes nothing and says nothing: callers see 0 items.
    if (is_read_only(stream->mode)) {
        return 0;
    }
    Transaction transaction;
    OldContent old;  // outlives the commit, which may write through it
    uint64_t len = 0;
    uint64_t end = 0;
    const char *content = build_in_record(request, transaction, old, len, end);
    if (content == nullptr) {
        return 0;
    }
    char digest[kSha256HexSize];
    if (!sha256_hex(content, len, digest)) {
        JX_LOG("g_compute_checksum_for_data(sha256) failed.");
        return 0;
    }
    const int32_t rc = jx_rewrite_with_crc(stream, content, static_cast<uint32_t>(len), digest,
                                           std::move(transaction));
    if (end != len) {  // the rewrite left the stream after the content
        (void)io().fseek(stream->fd, static_cast<off_t>(end), SEEK_SET);
    }
    return rc == JX_OK ? static_cast<int32_t>(request.n) : 0;
}

// Only the new bytes go into the record; the rest of the file stays as it is.
int32_t plain_write(const WriteRequest &request) noexcept {
    JxFile *stream = request.stream;
    const uint64_t count = uint64_t{request.size} * request.n;
    if (is_read_only(stream->mode) || count == 0) {
        return static_cast<int32_t>(write_items(request));  // the stream answers as it always did
    }
    struct stat st;
    uint64_t position = 0;
    if (fstat(stream->file_no, &st) != 0) {
        log_short_write(request, 0);
        return 0;
    }
    const uint64_t size = static_cast<uint64_t>(st.st_size);
    if (!write_position(stream, size, position)) {
        log_short_write(request, 0);
        return 0;
    }
    Transaction transaction;
    transaction.write_at(stream->file_path, position, request.ptr, count,
                         std::max<uint64_t>(size, position + count));
    if (transaction.commit() != 0) {
        log_short_write(request, 0);
        return 0;
    }
    (void)io().fseek(stream->fd, static_cast<off_t>(position + count), SEEK_SET);
    return static_cast<int32_t>(request.n);
}

int32_t write_by_protect_mode(const WriteRequest &request) noexcept {
    return is_protected(request.stream) ? protected_write(request) : plain_write(request);
}

}  // namespace

int32_t write_handle(const void *ptr, uint32_t size, uint32_t n, JxFile *stream) noexcept {
    return locked_handle_write({ptr, size, n, stream}, jx_package, write_by_protect_mode);
}

}  // namespace jx
