// The lock the library takes before it changes a registered file: its mutex,
// then an flock on a descriptor of the working copy, waited for a bounded time.
#pragma once

#include <cstdint>
#include <optional>

#include "frame/frame.h"
#include "registry/registry.h"

namespace jx::tools {

class ItemLock {
public:
    ItemLock(const RegItem &item, uint32_t wait_ms);
    ~ItemLock();
    ItemLock(const ItemLock &) = delete;
    ItemLock &operator=(const ItemLock &) = delete;

    // False when another process kept the file locked for the whole wait.
    bool held() const { return held_; }

private:
    std::optional<LibraryLock> library_;
    UniqueFd fd_;
    bool held_ = true;
};

}  // namespace jx::tools
