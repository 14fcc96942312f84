#include <cerrno>
#include <sys/stat.h>

#include "frame/frame.h"
#include "jaxel.h"
#include "maintenance/maintenance.h"

namespace jx {
namespace {

constexpr uint32_t kOwnerReadWrite = S_IRUSR | S_IWUSR;

// Only these four bits of a mode code count; they sit where the digits of an
// octal mode would sit if it were written in hexadecimal.
struct CodeGrant {
    uint32_t code_bit;
    uint32_t permission;
};

constexpr CodeGrant kCodeGrants[] = {
    {0x40, S_IRGRP},
    {0x20, S_IWGRP},
    {0x04, S_IROTH},
    {0x02, S_IWOTH},
};

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
}  // namespace jx

extern "C" uint32_t jx_create_privilege(uint32_t code) noexcept {
    uint32_t permission = jx::kOwnerReadWrite;
    for (const jx::CodeGrant &grant : jx::kCodeGrants) {
        if ((code & grant.code_bit) != 0) {
            permission |= grant.permission;
        }
    }
    return permission;
}

extern "C" void jx_set_privilege(const char *path, JxPrivilege privilege) noexcept {
    if (path == nullptr) {
        return;
    }
    // "r+" never creates, and the seam's open refuses a planted link.
    jx::UniqueStream stream(jx::io().fopen(path, "r+"));
    if (!stream) {
        return;
    }
    const int fd = fileno(stream.get());
    if (fd < 0) {
        return;
    }
    if (jx::io().fchmod(fd, jx_create_privilege(jx::privilege_mode_code(privilege))) == 0) {
        (void)jx::io().fchown(fd, static_cast<uid_t>(-1), jx::privilege_group(privilege));
    }
}

int32_t jx_open_with_privilege(JxFile *handle, const char *mode) noexcept {
    jx::UniqueStream stream(jx::io().fopen(handle->file_path, mode));
    handle->fd = stream.get();
    if (!stream) {
        const int e = errno;
        JX_LOG("g_fopen(%s) failed: %d(%s).", jx::base_name(handle->file_path), e, g_strerror(e));
        return JX_ERR_STATE;
    }
    handle->file_no = fileno(stream.get());
    if (handle->file_no < 0) {
        return jx::fail_open(handle, stream, "fileno");
    }
    const JxPrivilege privilege = handle->item->privilege;
    if (jx::io().fchmod(handle->file_no, jx_create_privilege(jx::privilege_mode_code(privilege))) !=
        0) {
        return jx::fail_open(handle, stream, "fchmod");
    }
    if (jx::io().fchown(handle->file_no, static_cast<uid_t>(-1), jx::privilege_group(privilege)) !=
        0) {
        return jx::fail_open(handle, stream, "fchown");
    }
    (void)stream.release();
    return JX_OK;
}
