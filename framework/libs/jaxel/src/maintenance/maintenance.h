// What the other subsystems use of file maintenance.
#pragma once

#include <cstdint>
#include <sys/types.h>

#include "jaxel.h"

namespace jx {

// A privilege word holds the mode code in its low 32 bits and the group id in
// its high 32 bits; there is no owner in it.
constexpr uint32_t privilege_mode_code(JxPrivilege privilege) noexcept {
    return static_cast<uint32_t>(privilege & 0xFFFFFFFFu);
}

constexpr gid_t privilege_group(JxPrivilege privilege) noexcept {
    return static_cast<gid_t>(privilege >> 32);
}

constexpr JxPrivilege make_privilege(uint32_t mode_code, uint32_t group) noexcept {
    return (static_cast<JxPrivilege>(group) << 32) | mode_code;
}

}  // namespace jx

// Opens handle->file_path with `mode` and applies the privilege of
// handle->item (which must be set) to it again. 0 with handle->fd and
// handle->file_no set, or JX_ERR_STATE with the stream closed and fd null.
int32_t jx_open_with_privilege(JxFile *handle, const char *mode) noexcept;
