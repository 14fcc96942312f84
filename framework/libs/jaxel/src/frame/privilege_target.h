// Owner, group and mode changes reach a file only through a descriptor of its
// resolved path, opened without following a link planted there and without
// waiting on a FIFO: the path cannot be swapped for a link between the check
// and the change, and no node but a regular file of one link is ever changed.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>

#include "frame/raii.h"

namespace jx {

class PrivilegeTarget {
public:
    // `access` is O_RDONLY, or O_RDWR where only a writable file may change.
    explicit PrivilegeTarget(const char *path, int access = O_RDONLY) noexcept;

    bool is_open() const noexcept { return static_cast<bool>(fd_); }
    // Not opened because a link leads out of /opt/ulx/ or the node is not a
    // regular file of one link; logged. Otherwise a failed open left errno.
    bool refused() const noexcept { return refused_; }
    const struct stat &status() const noexcept { return status_; }

    // fchown and fchmod through the seam: 0, or -1 with errno.
    int change_owner(uid_t owner, gid_t group) const noexcept;
    int change_mode(mode_t mode) const noexcept;

private:
    UniqueFd fd_;
    struct stat status_ {};
    bool refused_ = false;
};

// Sets the mode of the file at path through a PrivilegeTarget: 0, or -1 with
// errno (EPERM when the node was refused).
int change_mode_of(const char *path, mode_t mode) noexcept;

}  // namespace jx
