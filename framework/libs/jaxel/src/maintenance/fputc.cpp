#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>

#include "frame/frame.h"
#include "journal/journal.h"
#include "maintenance/maintenance.h"
#include "maintenance/side_file_rule.h"

namespace jx {
namespace {

void log_put_failure(const JxFile *stream) noexcept {
    const int e = errno;
    JX_LOG("fputc(%s) failed:  errno %d(%s)", stream->file_name, e, g_strerror(e));
}

// Where the character goes: the end for append handles, else the stream position.
bool put_position(const JxFile *stream, uint64_t size, uint64_t &position) noexcept {
    if (stream->mode[0] == 'a') {
        position = size;
        return true;
    }
    const long at = std::ftell(stream->fd);
    position = static_cast<uint64_t>(at);
    return at >= 0 && position < UINT32_MAX;
}

// A file with a side file changes together with it, whole.
int32_t put_with_side_file(JxFile *stream, char byte, uint64_t &position) noexcept {
    Content content;
    if (!read_whole_file_logged(stream->file_path, content) ||
        !put_position(stream, content.len, position) || !place_bytes(content, position, &byte, 1)) {
        return JX_ERR_WRITE;
    }
    char digest[kSha256HexSize];
    if (!sha256_hex(content.data.get(), content.len, digest)) {
        JX_LOG("g_compute_checksum_for_data(sha256) failed.");
        return JX_ERR_WRITE;
    }
    if (commit_with_side_file(stream->file_path, content.data.get(), content.len, digest, false) !=
        JX_OK) {
        log_put_failure(stream);
        return JX_ERR_WRITE;
    }
    return JX_OK;
}

// Without a side file only the one byte changes.
int32_t put_alone(JxFile *stream, char byte, uint64_t &position) noexcept {
    struct stat st;
    if (fstat(stream->file_no, &st) != 0 ||
        !put_position(stream, static_cast<uint64_t>(st.st_size), position)) {
        log_put_failure(stream);
        return JX_ERR_WRITE;
    }
    Transaction transaction;
    transaction.write_at(stream->file_path, position, &byte, 1,
                         std::max<uint64_t>(static_cast<uint64_t>(st.st_size), position + 1));
    if (transaction.commit() != 0) {
        log_put_failure(stream);
        return JX_ERR_WRITE;
    }
    return JX_OK;
}

}  // namespace

// The byte is on storage when the call returns, through one redo record.
int32_t put_char(int c, JxFile *stream) noexcept {
    if (stream == nullptr || stream->fd == nullptr) {
        return JX_REFUSE(JX_ERR_PARAM2, "stream");
    }
    const FileOperationLock lock(stream->file_no);
    (void)recover_pending(stream->file_path);
    if (std::strchr(stream->mode, 'r') != nullptr && std::strchr(stream->mode, '+') == nullptr) {
        errno = EBADF;  // what the stream itself answers
        log_put_failure(stream);
        return JX_ERR_WRITE;
    }
    const uint32_t mode = stream->item != nullptr ? stream->item->protect_mode
                                                  : static_cast<uint32_t>(JX_PROTECT_INVALID);
    const SideFileRule rule = side_file_rule(mode);
    const auto byte = static_cast<char>(c);
    uint64_t position = 0;
    const int32_t rc = rule == SideFileRule::kRefresh ? put_with_side_file(stream, byte, position)
                                                      : put_alone(stream, byte, position);
    if (rc != JX_OK) {
        return rc;
    }
    // Drops what the stream buffered of the old content and leaves it after the byte.
    (void)io().fseek(stream->fd, static_cast<off_t>(position + 1), SEEK_SET);
    if (rule == SideFileRule::kUnsupported) {
        JX_LOG("ram_check(%s) failed: %d", stream->file_name, JX_ERR_PROTECT_MODE);
        return JX_ERR_WRITE;
    }
    return JX_OK;
}

}  // namespace jx
