#include <random>

#include "support/sandbox.h"
#include "support/table_oracle.h"

namespace jx::test {

// Each table is indexed whole, then grows by a tail and is asked again; at
// times its last line is torn.
TEST_F(SandboxTest, TableIndexAnswersAsGKeyFileOnGeneratedTables) {
    // 15 plain lines, then (drawn one time in eight) lines that only GKeyFile can
    // judge: escapes, spaces, locales, junk, bad UTF-8, a key before any group, encodings.
    g_auto(GStrv) lines = g_strsplit(
        "[R1]|[E2]|[Q3]|[Sx]|[C4]|src=/p/a|src=/p/b|dst=/p/a|bak=/b|privilege=12|privilege=-1|"
        "privilege=7x|privilege=|# note||[ C4]|[C4] |[]|src = /p/a|src=/p/a |src= /p/b|src=/p/\\sa|"
        "src=/p/\\qa|crc=\\n|privilege= 5|privilege=99999999999999999999|  |\t#|src[de]=/p/a|junk|"
        "src=/p/\xff|src=/p/a\r|=v|#\xfe|Encoding=UTF-8|Encoding=latin1",
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
                ASSERT_EQ(table_by_index(index, path, probe), table_by_key_file(path, probe))
                    << tail;
        }
    }
}

}  // namespace jx::test
