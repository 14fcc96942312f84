#include <cerrno>
#include <cstdio>

#include "frame/frame.h"
#include "handles/handles.h"
#include "registry/registry.h"

namespace jx {
namespace {

// Makes one companion file durable; a failure is logged and skipped.
void sync_companion(const char *path) noexcept {
    const UniqueStream companion(io().fopen(path, "r+"));
    if (!companion) {
        const int e = errno;
        JX_LOG("jx_flush_file g_fopen(%s) failed: err[%d: %s].", base_name(path), e, g_strerror(e));
        return;
    }
    (void)JX_FLUSH_AND_SYNC(companion.get(), base_name(path),
                            {"jx_flush_file fflush", "jx_flush_file fsync"}, false);
}

}  // namespace

void flush_file(JxFile *stream) noexcept {
    if (stream == nullptr || stream->fd == nullptr) {
        (void)JX_REFUSE(0, "stream");
        return;
    }
    (void)JX_FLUSH_AND_SYNC(stream->fd, stream->file_name,
                            {"jx_flush_file jx_fflush", "jx_flush_file jx_fsync"}, false);
    const GPtr<RegItem> record(get_reg_inter_info(stream->file_path));
    if (!record) {
        JX_LOG("jx_flush_file file (%s) not register.", stream->file_name);
        return;
    }
    for (const char *companion : {record->dst, record->crc, record->bak, record->bakcrc}) {
        if (companion[0] != '\0') {
            sync_companion(companion);
        }
    }
}

}  // namespace jx
