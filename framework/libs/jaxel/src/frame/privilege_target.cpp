#include "frame/privilege_target.h"

#include <cerrno>

#include "frame/io.h"
#include "frame/log.h"
#include "frame/name_check.h"
#include "frame/path.h"

namespace jx {

PrivilegeTarget::PrivilegeTarget(const char *path, int access) noexcept {
    ResolvedPath resolved;
    const char *target = path != nullptr ? resolved_or_given(path, resolved) : nullptr;
    if (target == nullptr || leads_outside(path, target)) {
        refused_ = true;
        return;
    }
    fd_.reset(io().open(target, access | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY, 0));
    // A link at the resolved path was planted after it was resolved.
    const bool link = !fd_ && errno == ELOOP;
    if (link || (fd_ && (::fstat(fd_.get(), &status_) != 0 || !S_ISREG(status_.st_mode) ||
                         status_.st_nlink != 1))) {
        JX_LOG("%s refused: not a regular file of one link.", base_name(path));
        fd_.reset();
        refused_ = true;
    }
}

int PrivilegeTarget::change_owner(uid_t owner, gid_t group) const noexcept {
    return io().fchown(fd_.get(), owner, group);
}

int PrivilegeTarget::change_mode(mode_t mode) const noexcept {
    return io().fchmod(fd_.get(), mode);
}

int change_mode_of(const char *path, mode_t mode) noexcept {
    const PrivilegeTarget target(path);
    if (!target.is_open()) {
        if (target.refused()) {
            errno = EPERM;
        }
        return -1;
    }
    return target.change_mode(mode);
}

}  // namespace jx
