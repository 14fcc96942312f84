#include "item_lock.h"

#include <fcntl.h>

namespace jx::tools {

// A missing working copy has no descriptor to lock; the library repairs it
// unlocked too.
ItemLock::ItemLock(const RegItem &item, uint32_t wait_ms)
    : library_(std::in_place), fd_(::open(item.src, O_RDONLY | O_CLOEXEC)) {
    if (fd_) {
        held_ = lock_fd_within(fd_.get(), wait_ms);
    }
}

ItemLock::~ItemLock() {
    if (fd_ && held_) {
        unlock_fd(fd_.get());
    }
}

}  // namespace jx::tools
