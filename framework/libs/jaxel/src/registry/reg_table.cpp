#include "registry/reg_table.h"

#include "frame/frame.h"

namespace jx {
namespace {

struct ModeLetter {
    char letter;
    ProtectMode mode;
};

constexpr ModeLetter kModeLetters[] = {
    {'R', JX_PROTECT_R}, {'C', JX_PROTECT_C}, {'E', JX_PROTECT_E},
    {'S', JX_PROTECT_S}, {'P', JX_PROTECT_P}, {'F', JX_PROTECT_F},
};

struct PathKey {
    const char *key;
    char (RegItem::*field)[256];
};

constexpr PathKey kPathKeys[] = {
    {"src", &RegItem::src}, {"dst", &RegItem::dst},       {"bak", &RegItem::bak},
    {"crc", &RegItem::crc}, {"bakcrc", &RegItem::bakcrc},
};

ProtectMode mode_of_group(const char *group) {
    for (const ModeLetter &entry : kModeLetters) {
        if (group[0] == entry.letter) {
            return entry.mode;
        }
    }
    return JX_PROTECT_INVALID;
}

void copy_paths(GKeyFile *table, const char *group, RegItem &out) {
    for (const PathKey &entry : kPathKeys) {
        const GPtr<gchar> value(g_key_file_get_string(table, group, entry.key, nullptr));
        if (value) {
            g_strlcpy(out.*entry.field, value.get(), sizeof(out.*entry.field));
        }
    }
}

bool registers(GKeyFile *table, const char *group, const char *src) {
    const GPtr<gchar> value(g_key_file_get_string(table, group, "src", nullptr));
    return value && g_strcmp0(value.get(), src) == 0;
}

}  // namespace

bool jx_find_reg_group(const char *table_path, const char *src, RegItem &out) noexcept {
    const KeyFilePtr table(jx_load_key_file(table_path));
    if (!table) {
        JX_LOG("jx_open_key_file(%s) failed.", base_name(table_path));
        return false;
    }
    const StrvPtr groups(g_key_file_get_groups(table.get(), nullptr));
    if (!groups) {
        JX_LOG("g_key_file_get_groups failed.");
        return false;
    }
    for (gchar **group = groups.get(); *group != nullptr; ++group) {
        if (!registers(table.get(), *group, src)) {
            continue;
        }
        const ProtectMode mode = mode_of_group(*group);
        if (mode == JX_PROTECT_INVALID) {
            continue;
        }
        out.protect_mode = mode;
        copy_paths(table.get(), *group, out);
        out.privilege = g_key_file_get_uint64(table.get(), *group, "privilege", nullptr);
        return true;
    }
    return false;
}

}  // namespace jx
