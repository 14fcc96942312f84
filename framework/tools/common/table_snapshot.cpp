#include "table_snapshot.h"

#include <fcntl.h>
#include <string_view>

#include "frame/frame.h"

namespace jx::tools {

SnapshotResult take_snapshot(uint32_t wait_ms, TableSnapshot &out) {
    const UniqueFd fd(::open(kRegTablePath, O_RDONLY | O_CLOEXEC));
    if (!fd) {
        return SnapshotResult::kUnreadable;
    }
    if (!lock_fd_within(fd.get(), wait_ms)) {
        return SnapshotResult::kBusy;
    }
    const bool loaded = out.index.refresh(kRegTablePath);
    unlock_fd(fd.get());
    if (!loaded) {
        return SnapshotResult::kUnreadable;
    }
    out.items = out.index.items();
    return SnapshotResult::kOk;
}

std::vector<RegItem> select_items(const TableSnapshot &snapshot,
                                  const std::vector<const char *> &paths) {
    if (paths.empty()) {
        return snapshot.items;
    }
    std::vector<RegItem> chosen;
    for (const RegItem &item : snapshot.items) {
        for (const char *path : paths) {
            if (std::string_view(item.src) == path) {
                chosen.push_back(item);
                break;
            }
        }
    }
    return chosen;
}

char mode_letter(ProtectMode mode) {
    static constexpr char kLetters[] = "RCESPF";
    return mode < JX_PROTECT_INVALID ? kLetters[mode] : '?';
}

}  // namespace jx::tools
