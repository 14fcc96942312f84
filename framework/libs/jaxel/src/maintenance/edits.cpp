#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <sys/stat.h>

#include "frame/frame.h"
#include "journal/journal.h"
#include "maintenance/maintenance.h"
#include "safestr.h"

namespace jx {
namespace {

struct EditRequest {
    const void *data;
    uint32_t length;  // bytes inserted or put in; for a delete, the count
    uint32_t offset;
    uint32_t replaced;
};

using EditBody = int32_t (*)(JxFile *stream, const EditRequest &request);

// Reboot test, then both locks around the read-build-rewrite cycle, so no
// other write or clear of the file interleaves. A null body changes nothing.
int32_t run_edit(JxFile *stream, const EditRequest &request, EditBody body) noexcept {
    const int32_t guard = reboot_guard(false);
    if (guard != JX_OK || body == nullptr) {
        return guard;
    }
    const FileOperationLock lock(stream->file_no);
    (void)recover_pending(stream->file_path);
    return body(stream, request);
}

bool read_content(const JxFile *stream, Content &content) noexcept {
    GErrorPtr error;
    if (!read_whole_file(stream->file_path, content, error)) {
        JX_LOG("g_file_get_contents(%s) failed: %s.", base_name(stream->file_path), error->message);
        return false;
    }
    return true;
}

bool stored_size(const JxFile *stream, uint64_t &size) noexcept {
    struct stat st;
    if (fstat(stream->file_no, &st) != 0) {
        JX_LOG_ERRNO_SPACED("fstat", base_name(stream->file_path));
        return false;
    }
    size = static_cast<uint64_t>(st.st_size);
    return true;
}

// All lengths arrive as exact 64-bit sums; anything beyond 32 bits is refused
// rather than wrapped.
GPtr<char> allocate_content(const JxFile *stream, uint64_t length) noexcept {
    if (length > UINT32_MAX) {
        JX_LOG("%s new length %llu beyond 4 GiB.", base_name(stream->file_path),
               static_cast<unsigned long long>(length));
        return nullptr;
    }
    const auto size = static_cast<gsize>(std::max<uint64_t>(length, 1));
    return GPtr<char>(static_cast<char *>(g_try_malloc(size)));
}

void copy_bytes(char *dest, uint64_t dest_size, uint64_t at, const void *src,
                uint64_t count) noexcept {
    if (count != 0 && memmove_s(dest + at, dest_size - at, src, count) != 0) {
        JX_LOG("[%s][%d]: memmove_s failed.\n", __FILE__, __LINE__);
    }
}

// A failed digest is handed on as no digest, which the checked rewrite refuses.
// Lengths reaching here were checked to fit in 32 bits.
int32_t rewrite(JxFile *stream, const char *content, uint64_t length) noexcept {
    const auto len = static_cast<uint32_t>(length);
    char digest[kSha256HexSize];
    const char *expected = sha256_hex(content, len, digest) ? digest : nullptr;
    return jx_rewrite_with_crc(stream, content, len, expected);
}

int32_t insert_body(JxFile *stream, const EditRequest &request) noexcept {
    Content old;
    if (!read_content(stream, old)) {
        return JX_ERR_READ;
    }
    const uint64_t point = std::min<uint64_t>(request.offset, old.len);
    const uint64_t length = uint64_t{old.len} + request.length;
    const GPtr<char> content = allocate_content(stream, length);
    if (!content) {
        return JX_ERR_NO_MEMORY;
    }
    copy_bytes(content.get(), length, 0, old.data.get(), point);
    copy_bytes(content.get(), length, point, request.data, request.length);
    copy_bytes(content.get(), length, point + request.length, old.data.get() + point,
               old.len - point);
    return rewrite(stream, content.get(), length);
}

int32_t delete_body(JxFile *stream, const EditRequest &request) noexcept {
    uint64_t size = 0;
    if (!stored_size(stream, size)) {
        return JX_ERR_READ;
    }
    if (size <= request.offset) {
        return JX_OK;
    }
    Content content;
    if (!read_content(stream, content)) {
        return JX_ERR_READ;
    }
    const uint64_t len = content.len;
    const uint64_t start = std::min<uint64_t>(request.offset, len);
    const uint64_t end = uint64_t{request.offset} + request.length;
    if (end > len) {
        return rewrite(stream, content.data.get(), start);
    }
    copy_bytes(content.data.get(), len, start, content.data.get() + end, len - end);
    return rewrite(stream, content.data.get(), len - request.length);
}

int32_t modify_body(JxFile *stream, const EditRequest &request) noexcept {
    uint64_t size = 0;
    if (!stored_size(stream, size)) {
        return JX_ERR_READ;
    }
    if (size <= request.offset) {
        return JX_ERR_PARAM3;
    }
    Content old;
    if (!read_content(stream, old)) {
        return JX_ERR_READ;
    }
    const uint64_t len = old.len;
    const uint64_t start = std::min<uint64_t>(request.offset, len);
    const uint64_t replaced = std::min<uint64_t>(request.replaced, len - start);
    const uint64_t length = len + request.length - replaced;
    const GPtr<char> content = allocate_content(stream, length);
    if (!content) {
        return JX_ERR_NO_MEMORY;
    }
    copy_bytes(content.get(), length, 0, old.data.get(), start);
    copy_bytes(content.get(), length, start, request.data, request.length);
    copy_bytes(content.get(), length, start + request.length, old.data.get() + start + replaced,
               len - start - replaced);
    return rewrite(stream, content.get(), length);
}

bool usable(const JxFile *stream) noexcept { return stream != nullptr && stream->fd != nullptr; }

}  // namespace

int32_t insert_bytes(const void *data, uint32_t length, uint32_t offset, JxFile *stream) noexcept {
    if (data == nullptr) {
        return JX_REFUSE(JX_ERR_PARAM1, "data");
    }
    if (!usable(stream)) {
        return JX_REFUSE(JX_ERR_PARAM4, "stream");
    }
    return run_edit(stream, {data, length, offset, 0}, length == 0 ? nullptr : insert_body);
}

int32_t delete_bytes(uint32_t count, uint32_t offset, JxFile *stream) noexcept {
    if (count == 0) {
        return JX_OK;
    }
    if (!usable(stream)) {
        return JX_REFUSE(JX_ERR_PARAM3, "stream");
    }
    return run_edit(stream, {nullptr, count, offset, 0}, delete_body);
}

int32_t modify_bytes(const void *data, uint32_t length, uint32_t offset, uint32_t replaced_length,
                     JxFile *stream) noexcept {
    if (data == nullptr) {
        return JX_REFUSE(JX_ERR_PARAM1, "data");
    }
    if (length == 0) {
        return JX_ERR_PARAM2;
    }
    if (replaced_length == 0) {
        return JX_ERR_PARAM4;
    }
    if (!usable(stream)) {
        return JX_REFUSE(JX_ERR_PARAM5, "stream");
    }
    return run_edit(stream, {data, length, offset, replaced_length}, modify_body);
}

}  // namespace jx
