#include <sys/stat.h>

#include "frame/frame.h"
#include "integrity/integrity.h"

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

}  // namespace

uint32_t create_privilege(uint32_t code) noexcept {
    uint32_t permission = kOwnerReadWrite;
    for (const CodeGrant &grant : kCodeGrants) {
        if ((code & grant.code_bit) != 0) {
            permission |= grant.permission;
        }
    }
    return permission;
}

void set_privilege(const char *path, JxPrivilege privilege) noexcept {
    if (path == nullptr) {
        (void)JX_REFUSE(0, "path");
        return;
    }
    // Read and write access, as "r+" would need; never created.
    const PrivilegeTarget target(path, O_RDWR);
    if (target.is_open() &&
        target.change_mode(create_privilege(privilege_mode_code(privilege))) == 0) {
        (void)target.change_owner(static_cast<uid_t>(-1), privilege_group(privilege));
    }
}

}  // namespace jx
