#include "support/table_oracle.h"

#include <cstring>

#include "frame/frame.h"

namespace jx::test {

std::string table_by_key_file(const char *path, const char *probe) {
    g_autoptr(GKeyFile) table = g_key_file_new();
    const bool loaded = g_key_file_load_from_file(table, path, G_KEY_FILE_NONE, nullptr);
    g_auto(GStrv) groups = g_key_file_get_groups(table, nullptr);
    std::string first;
    bool listed = false;
    for (gchar **group = groups; *group != nullptr; ++group) {
        std::string row(1, (*group)[0]);
        bool registers_probe = false;
        for (const char *key : {"src", "dst", "bak", "crc", "bakcrc"}) {
            g_autofree gchar *value = g_key_file_get_string(table, *group, key, nullptr);
            // A record holds at most 255 bytes of a path.
            row += "|" + std::string(value != nullptr ? value : "").substr(0, kPathMax - 1);
            const bool probe_here = g_strcmp0(value, probe) == 0;
            listed = listed || (probe_here && (key[0] == 's' || key[0] == 'd'));
            registers_probe = registers_probe || (probe_here && key[0] == 's');
        }
        row += "|" + std::to_string(g_key_file_get_uint64(table, *group, "privilege", nullptr));
        const bool found = row[0] != '\0' && strchr("RCESPF", row[0]) && registers_probe;
        first = first.empty() && found ? row : first;
    }
    return loaded ? first + std::to_string(g_strv_length(groups)) + std::string(listed, 'L') : "-";
}

std::string table_by_index(RegIndex &index, const char *path, const char *probe) {
    RegItem r{};
    const bool loaded = index.refresh(path);
    const std::string first = !index.find(probe, r)
                                  ? ""
                                  : std::string(1, "RCESPF"[r.protect_mode]) + "|" + r.src + "|" +
                                        r.dst + "|" + r.bak + "|" + r.crc + "|" + r.bakcrc + "|" +
                                        std::to_string(r.privilege);
    return loaded ? first + std::to_string(index.group_count()) +
                        std::string(index.lists(probe, probe), 'L')
                  : "-";
}

}  // namespace jx::test
