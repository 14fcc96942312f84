#include <optional>

#include "frame/frame.h"
#include "registry/registry.h"

namespace jx {

RegItem *get_reg_inter_info(const char *name) noexcept {
    if (reg_table_fd() == -1) {
        JX_LOG("%s not init.", kRegTableName);
        return nullptr;
    }
    // Reading the table's own record must not wait for a lock that the
    // caller may already hold on it.
    std::optional<TableLock> lock;
    if (g_strcmp0(name, kRegTablePath) != 0) {
        lock.emplace();
    }
    GPtr<RegItem> record(g_new0(RegItem, 1));
    bool found = false;
    if (!with_table_index([&](const RegIndex &index) { found = index.find(name, *record); })) {
        JX_LOG("jx_open_key_file(%s) failed.", kRegTableName);
        return nullptr;
    }
    return found ? record.release() : nullptr;
}

}  // namespace jx
