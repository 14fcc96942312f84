#include <cerrno>
#include <cstdio>

#include "frame/frame.h"
#include "maintenance/maintenance.h"
#include "maintenance/side_file_rule.h"

namespace jx {
namespace {

// The character is flushed before the side file is refreshed, so the side file
// describes what is on storage, which is what the next open checks.
bool put_and_flush(int c, JxFile *stream) noexcept {
    if (io().fputc(c, stream->fd) != EOF && io().fflush(stream->fd) == 0) {
        return true;
    }
    const int e = errno;
    JX_LOG("fputc(%s) failed:  errno %d(%s)", stream->file_name, e, g_strerror(e));
    return false;
}

int32_t refresh_side_file(const JxFile *stream) noexcept {
    const uint32_t mode = stream->item != nullptr ? stream->item->protect_mode
                                                  : static_cast<uint32_t>(JX_PROTECT_INVALID);
    int32_t rc = JX_OK;
    switch (side_file_rule(mode)) {
    case SideFileRule::kRefresh: rc = ram_check(stream->file_path); break;
    case SideFileRule::kNone: break;
    case SideFileRule::kUnsupported: rc = JX_ERR_PROTECT_MODE; break;
    }
    if (rc != JX_OK) {
        JX_LOG("ram_check(%s) failed: %d", stream->file_name, rc);
        return JX_ERR_WRITE;
    }
    return JX_OK;
}

}  // namespace

int32_t put_char(int c, JxFile *stream) noexcept {
    if (stream == nullptr || stream->fd == nullptr) {
        return JX_REFUSE(JX_ERR_PARAM2, "stream");
    }
    const FileOperationLock lock(stream->file_no);
    if (!put_and_flush(c, stream)) {
        return JX_ERR_WRITE;
    }
    return refresh_side_file(stream);
}

}  // namespace jx
