#include <random>

#include "registry/registry.h"
#include "support/sandbox.h"

namespace jx::test {

// Each side answers with whether the table loads, the lookup's row, the
// group count and whether registration finds the probe listed (src or dst).
static std::string by_key_file(const char *path, const char *probe) {
    g_autoptr(GKeyFile) table = g_key_file_new();
    const bool loaded = g_key_file_load_from_file(table, path, G_KEY_FILE_NONE, nullptr);
    g_auto(GStrv) groups = g_key_file_get_groups(table, nullptr);
    std::string first;
    bool listed = false;
    for (gchar **group = groups; *group != nullptr; ++group) {
        std::string row(1, (*group)[0]);
        for (const char *key : {"src", "dst", "bak", "crc", "bakcrc"}) {
            g_autofree gchar *value = g_key_file_get_string(table, *group, key, nullptr);
            row += std::string("|") + (value != nullptr ? value : "");
            listed = listed || (key[2] != 'k' && g_strcmp0(value, probe) == 0);
        }
        row += "|" + std::to_string(g_key_file_get_uint64(table, *group, "privilege", nullptr));
        const bool found = strchr("RCESPF", row[0]) && row.find(probe + std::string("|")) == 2;
        first = first.empty() && found ? row : first;
    }
    return loaded ? first + std::to_string(g_strv_length(groups)) + std::string(listed, 'L') : "-";
}

static std::string by_index(RegIndex &index, const char *path, const char *probe) {
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

// Each table is indexed whole, then grows by a tail and is asked again; at
// times its last line is torn.
TEST_F(SandboxTest, TableIndexAnswersAsGKeyFileOnGeneratedTables) {
    // 15 plain lines, then (drawn one time in eight) lines that only GKeyFile can
    // judge: escapes, spaces, locales, junk, bad UTF-8, a key before any group.
    g_auto(GStrv) lines = g_strsplit(
        "[R1]|[E2]|[Q3]|[Sx]|[C4]|src=/p/a|src=/p/b|dst=/p/a|bak=/b|privilege=12|privilege=-1|"
        "privilege=7x|privilege=|# note||[ C4]|[C4] |[]|src = /p/a|src=/p/a |src= /p/b|src=/p/\\sa|"
        "src=/p/\\qa|crc=\\n|privilege= 5|privilege=99999999999999999999|  |\t#|src[de]=/p/a|junk|"
        "src=/p/\xff|src=/p/a\r|=v|#\xfe",
        "|", -1);
    std::mt19937 random(16);
    const char *path = "/opt/ulx/pram/table.ini";
    for (int table = 0; table < 500; ++table) {
        std::string parts[2] = {table % 4 != 0 ? "[F0]\n" : "", ""};
        for (int line = random() % 24, at = 0; line > 0; --line, at = at || random() % 3 == 0)
            (parts[at] += lines[random() % (random() % 8 ? 15 : g_strv_length(lines))]) +=
                line > 1 || table % 5 ? "\n" : "";
        RegIndex index;
        for (const std::string &tail : {std::string(), parts[1]}) {
            write_file(path, parts[0] + tail);  // the same file, grown
            for (const char *probe : {"/p/a", "/p/b", "/p/ a", "/p/a "})
                ASSERT_EQ(by_index(index, path, probe), by_key_file(path, probe)) << tail;
        }
    }
}

}  // namespace jx::test
