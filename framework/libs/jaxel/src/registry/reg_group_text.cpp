#include "registry/registry.h"

namespace jx {
namespace {

void append_paths(GString *text, const RegItem &r, int number) noexcept {
    switch (r.protect_mode) {
    case JX_PROTECT_R:
        // An R group names its dst again as bak and its crc again as bakcrc:
        // readers of existing tables rely on exactly these lines.
        g_string_append_printf(text, "[R%d]\ndst=%s\nsrc=%s\nbak=%s\ncrc=%s\nbakcrc=%s\n", number,
                               r.dst, r.src, r.dst, r.crc, r.crc);
        break;
    case JX_PROTECT_C:
        g_string_append_printf(text, "[C%d]\ndst=%s\nsrc=%s\n", number, r.dst, r.src);
        break;
    case JX_PROTECT_E:
    case JX_PROTECT_S:
        g_string_append_printf(text, "[%c%d]\ndst=%s\nsrc=%s\nbak=%s\ncrc=%s\nbakcrc=%s\n",
                               r.protect_mode == JX_PROTECT_E ? 'E' : 'S', number, r.dst, r.src,
                               r.bak, r.crc, r.bakcrc);
        break;
    case JX_PROTECT_P:
        g_string_append_printf(text, "[P%d]\ndst=%s\nsrc=%s\n", number, r.dst, r.src);
        break;
    default: g_string_append_printf(text, "[F%d]\nsrc=%s\n", number, r.src); break;
    }
}

}  // namespace

gchar *reg_group_text(const RegItem &record, int number) noexcept {
    GString *text = g_string_new(nullptr);
    append_paths(text, record, number);
    g_string_append_printf(text, "privilege=%llu\n",
                           static_cast<unsigned long long>(record.privilege));
    if (record.callback_obj != nullptr && record.callback_method != nullptr) {
        g_string_append_printf(text, "callback_obj=%s\ncallback_method=%s\n", record.callback_obj,
                               record.callback_method);
    }
    return g_string_free(text, FALSE);
}

}  // namespace jx
