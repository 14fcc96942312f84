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
    if (io().fflush(companion.get()) != 0) {
        const int e = errno;
        JX_LOG("jx_flush_file fflush(%s) failed:err[%d:%s].", base_name(path), e, g_strerror(e));
    }
    if (io().fsync(fileno(companion.get())) != 0) {
        const int e = errno;
        JX_LOG("jx_flush_file fsync(%s) failed:err[%d:%s].", base_name(path), e, g_strerror(e));
    }
}

}  // namespace

void flush_file(JxFile *stream) noexcept {
    if (stream == nullptr || stream->fd == nullptr) {
        return;
    }
    if (io().fflush(stream->fd) != 0) {
        const int e = errno;
        JX_LOG("jx_flush_file jx_fflush(%s) failed:err[%d:%s].", stream->file_name, e,
               g_strerror(e));
    }
    if (io().fsync(fileno(stream->fd)) != 0) {
        const int e = errno;
        JX_LOG("jx_flush_file jx_fsync(%s) failed:err[%d:%s].", stream->file_name, e,
               g_strerror(e));
    }
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
