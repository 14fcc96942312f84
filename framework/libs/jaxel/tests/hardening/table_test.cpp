#include "support/builders.h"
#include "support/sandbox.h"

namespace {

using namespace jx::test;

const char kTable[] = "/opt/ulx/pram/fsync_reg.ini";

// A new group starts on a line of its own and never takes an existing name.
TEST_F(SandboxTest, NewGroupsStartOnTheirOwnLineWithAFreshNumber) {
    struct Row {
        const char *table, *name;
        uint32_t mode;
        int32_t code;
        const char *appended;  // the start of what is appended
    };
    for (const auto [table, name, mode, code, appended] : std::initializer_list<Row>{
             {"[S1]\nsrc=/a\n[R2]\nsrc=/b\n", "n1", JX_PROTECT_E, 0, "[E3]\n"},
             {"[E1]\nsrc=/a\nprivilege=1", "n2", JX_PROTECT_C, 0, "\n[C2]\n"},
             {"[E1]\nsrc=/a\n[E5]\nsrc=/b\n", "n3", JX_PROTECT_E, 0, "[E6]\n"},
             {"[C2]\nsrc=/a\n", "n4", JX_PROTECT_C, 0, "[C3]\n"},
             {"[C99999999999999999999]\nsrc=/a\n", "n5", JX_PROTECT_C, JX_ERR_WRITE, ""},
         }) {
        write_file(kTable, table);
        EXPECT_EQ(register_items("app", {item_cfg(name, mode)}), code) << name;
        EXPECT_EQ(read_file(kTable).substr(0, std::string(table).size()), table) << name;
        EXPECT_EQ(read_file(kTable).substr(std::string(table).size(), std::string(appended).size()),
                  appended)
            << name;
    }
}

}  // namespace
