#include <cerrno>
#include <sys/stat.h>

#include "frame/frame.h"
#include "handles/handle_write.h"
#include "journal/journal.h"

namespace jx {
namespace {

// Whether the write may go on. A file that has reached its package size is
// rolled over first; while that fails it may still grow to twice the size.
bool passes_size_check(JxFile *stream, Packager packager, int32_t &refusal) noexcept {
    const int32_t limit = stream->item != nullptr ? stream->item->package_size : 0;
    if (limit == 0) {
        return true;
    }
    struct stat st;
    if (fstat(stream->file_no, &st) != 0) {
        JX_LOG_ERRNO_SPACED("fstat", base_name(stream->file_path));
        refusal = JX_ERR_READ;
        return false;
    }
    const int64_t size = st.st_size;
    if (limit > size) {
        return true;
    }
    const int32_t rc = packager(stream);
    if (rc == JX_OK || size < 2 * static_cast<int64_t>(limit)) {
        return true;
    }
    JX_LOG("jx_package failed: ret %d.", rc);
    refusal = 0;
    return false;
}

// The byte total must fit the 32-bit sizes of the target, and the item count
// the signed result that reports it.
bool count_fits(const WriteRequest &request) noexcept {
    const uint64_t total = static_cast<uint64_t>(request.size) * request.n;
    if (total <= UINT32_MAX && request.n <= INT32_MAX) {
        return true;
    }
    JX_LOG("fwrite %s (sz %u count %u) refused: %llu bytes do not fit 32 bits.",
           base_name(request.stream->file_path), request.size, request.n,
           static_cast<unsigned long long>(total));
    return false;
}

}  // namespace

int32_t locked_handle_write(const WriteRequest &request, Packager packager,
                            WriteBody body) noexcept {
    if (request.ptr == nullptr) {
        JX_LOG("invalid input para: ptr is NULL.");
        return JX_ERR_PARAM1;
    }
    if (request.stream == nullptr || request.stream->fd == nullptr) {
        JX_LOG("invalid input para: stream or stream->fd is NULL.");
        return JX_ERR_PARAM4;
    }
    if (!count_fits(request)) {
        return JX_ERR_PARAM3;
    }
    const int32_t guard = reboot_guard(true);
    if (guard != JX_OK) {
        return guard;
    }
    FileOperationLock lock(request.stream->file_no);
    (void)recover_pending(request.stream->file_path);
    int32_t refusal = 0;
    if (!passes_size_check(request.stream, packager, refusal)) {
        return refusal;
    }
    return body(request);
}

void log_short_write(const WriteRequest &request, std::size_t written) noexcept {
    const int e = errno;
    JX_LOG("fwrite %s (sz %d count %d) failed: wcnt %d errno %d(%s)",
           base_name(request.stream->file_path), static_cast<int>(request.size),
           static_cast<int>(request.n), static_cast<int>(written), e, g_strerror(e));
}

std::size_t write_items(const WriteRequest &request) noexcept {
    const std::size_t written =
        io().fwrite(request.ptr, request.size, request.n, request.stream->fd);
    if (written != request.n) {
        log_short_write(request, written);
    }
    return written;
}

}  // namespace jx
