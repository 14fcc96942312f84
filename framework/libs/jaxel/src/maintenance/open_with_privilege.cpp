#include <cerrno>

#include "frame/frame.h"
#include "maintenance/maintenance.h"

namespace jx {
namespace {

// Logs `what` with the current errno, then closes the half-opened stream.
int32_t fail_open(JxFile *handle, UniqueStream &stream, const char *what) noexcept {
    const int e = errno;
    JX_LOG("%s failed: errno %d(%s).", what, e, g_strerror(e));
    stream.reset();
    handle->fd = nullptr;
    handle->file_no = -1;
    return JX_ERR_STATE;
}

}  // namespace

int32_t jx_open_with_privilege(JxFile *handle, const char *mode, const char *open_path) noexcept {
    UniqueStream stream(io().fopen(open_path != nullptr ? open_path : handle->file_path, mode));
    handle->fd = stream.get();
    if (!stream) {
        const int e = errno;
        JX_LOG("g_fopen(%s) failed: %d(%s).", base_name(handle->file_path), e, g_strerror(e));
        return JX_ERR_STATE;
    }
    handle->file_no = fileno(stream.get());
    if (handle->file_no < 0) {
        return fail_open(handle, stream, "fileno");
    }
    const JxPrivilege privilege = handle->item->privilege;
    if (io().fchmod(handle->file_no, create_privilege(privilege_mode_code(privilege))) != 0) {
        return fail_open(handle, stream, "fchmod");
    }
    if (io().fchown(handle->file_no, static_cast<uid_t>(-1), privilege_group(privilege)) != 0) {
        return fail_open(handle, stream, "fchown");
    }
    (void)stream.release();
    return JX_OK;
}

}  // namespace jx
