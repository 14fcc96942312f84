#include "frame/module_list.h"

#include <cstring>

namespace jx {

GSList *g_jx_reg_list = nullptr;

namespace {

gint compare_short_name(gconstpointer item, gconstpointer short_name) {
    return std::strncmp(static_cast<const JxModuleItem *>(item)->short_name,
                        static_cast<const char *>(short_name), kItemNameCompareLength);
}

}  // namespace

JxModuleItem *jx_find_module_item(const char *short_name) noexcept {
    if (short_name == nullptr) {
        return nullptr;
    }
    GSList *node = g_slist_find_custom(g_jx_reg_list, short_name, compare_short_name);
    return node != nullptr ? static_cast<JxModuleItem *>(node->data) : nullptr;
}

void jx_append_module_item(JxModuleItem *item) noexcept {
    g_jx_reg_list = g_slist_append(g_jx_reg_list, item);
}

}  // namespace jx
