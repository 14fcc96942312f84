#include <optional>

#include "frame/frame.h"
#include "registry/reg_table.h"
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
    if (!jx_find_reg_group(kRegTablePath, name, *record)) {
        return nullptr;
    }
    return record.release();
}

}  // namespace jx
