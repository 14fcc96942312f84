#include "support/builders.h"
#include "support/log_capture.h"
#include "support/sandbox.h"

namespace {

using namespace jx::test;

const char kTable[] = "/opt/ulx/pram/fsync_reg.ini";

bool logged_plainly(const LogCapture &log) {
    const auto lines = log.messages();
    return !lines.empty() && std::none_of(lines.begin(), lines.end(), [](const std::string &m) {
        return m.find("(null)") != std::string::npos;
    });
}

// Hostile names and paths are refused whole: no group, no file outside its tier.
TEST_F(SandboxTest, HostileNamesAndLengthsAreRefusedBeforeAnythingIsCreated) {
    const std::string long_name(240, 'n');
    ASSERT_EQ(register_items("app", {item_cfg("seed", JX_PROTECT_C)}), 0);
    struct Row {
        const char *module, *name;
        uint32_t mode;
        const char *path;
        int32_t code;
    };
    for (auto [module, name, mode, path, code] : std::initializer_list<Row>{
             {"app", "a\nb", JX_PROTECT_E, "", JX_ERR_PARAM1},
             {"app", "../../x", JX_PROTECT_E, "", JX_ERR_PARAM1},
             {"app", "..", JX_PROTECT_C, "", JX_ERR_PARAM1},
             {"app", "a\\tb", JX_PROTECT_E, "", JX_ERR_PARAM1},
             {"app", "\xff", JX_PROTECT_E, "", JX_ERR_PARAM1},
             {"app", long_name.c_str(), JX_PROTECT_E, "", JX_ERR_PARAM1},
             {"x/..", "n", JX_PROTECT_E, "", JX_ERR_PARAM3},
             {"app", "x", JX_PROTECT_F, "", JX_ERR_PARAM1},
             {"app", "/opt/ulx/../x", JX_PROTECT_F, "", JX_ERR_PARAM1},
             {"app", "n", JX_PROTECT_P, "/opt/ulx/pflash/../x", JX_ERR_PARAM1},
             {"app", "n", JX_PROTECT_E, "/opt/a\nb", JX_ERR_PARAM1},
             {"app", "n", JX_PROTECT_E, "", 0},
         }) {
        const std::string before = read_file(kTable);
        LogCapture log;
        const JxItemCfg cfg[] = {item_cfg("ok", JX_PROTECT_C), item_cfg(name, mode, 0, path)};
        EXPECT_EQ(jx_init_cfg(cfg, 2, module), code) << name;
        EXPECT_EQ(read_file(kTable) == before, code != 0) << name;
        EXPECT_EQ(logged_plainly(log), code != 0) << name;
        EXPECT_FALSE(exists("/opt/x") || exists("/opt/ulx/x")) << name;
    }
    jx_set_module_name("app");
    const Handle handle = open_handle("n", "w+");
    const std::string text(64, 't');
    LogCapture log;
    EXPECT_EQ(jx_fwrite(text.data(), 1u << 16, 1u << 16, handle.get()), JX_ERR_PARAM3);
    EXPECT_EQ(jx_fwrite(text.data(), 1, UINT32_MAX, handle.get()), JX_ERR_PARAM3);
    EXPECT_TRUE(logged_plainly(log));
    EXPECT_EQ(read_file(tier_path("app", "n")), "");
    EXPECT_EQ(jx_clear_module_file("n", "/"), JX_ERR_PARAM2);
}

}  // namespace
