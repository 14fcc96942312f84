#include "frame/module_list.h"

#include "frame/raii.h"

namespace jx {

GSList *g_jx_reg_list = nullptr;

namespace {

// The list's last node and its items by the part of the short name that
// lookups compare, so that registering n files costs n steps, not n squared.
GSList *g_reg_list_tail = nullptr;

GHashTable *items_by_name() noexcept {
    static GHashTable *const table =
        g_hash_table_new_full(g_str_hash, g_str_equal, g_free, nullptr);
    return table;
}

}  // namespace

JxModuleItem *jx_find_module_item(const char *short_name) noexcept {
    if (short_name == nullptr) {
        return nullptr;
    }
    const GPtr<gchar> key(g_strndup(short_name, kItemNameCompareLength));
    return static_cast<JxModuleItem *>(g_hash_table_lookup(items_by_name(), key.get()));
}

void jx_append_module_item(JxModuleItem *item) noexcept {
    GSList *node = g_slist_append(nullptr, item);
    if (g_jx_reg_list == nullptr) {
        g_jx_reg_list = node;
    } else {
        g_reg_list_tail->next = node;
    }
    g_reg_list_tail = node;
    gchar *key = g_strndup(item->short_name, kItemNameCompareLength);
    if (g_hash_table_contains(items_by_name(), key)) {
        g_free(key);  // the first item of a name is the one found
    } else {
        g_hash_table_insert(items_by_name(), key, item);
    }
}

}  // namespace jx
