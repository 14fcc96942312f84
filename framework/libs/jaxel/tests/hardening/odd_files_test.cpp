#include <functional>
#include <sys/stat.h>
#include <unistd.h>

#include "support/builders.h"
#include "support/oracle.h"
#include "support/sandbox.h"

namespace {

using namespace jx::test;

const std::string kP = "/opt/ulx/pram/", kS = "/opt/ulx/save/";

// A FIFO or device where a file belongs is answered in bounded time (the alarm
// turns a hang into a failure) and its node keeps its mode.
TEST_F(SandboxTest, FifosAndDevicesWhereFilesBelongNeverHangAndKeepTheirMode) {
    write_file(kP + "ok", "x");
    write_file(kP + "ok.sha256", side_file_text("x"));
    write_file(kP + "f", "x");
    struct Row {
        std::string node;  // made a FIFO, or with "->" a link to /dev/zero
        std::function<int()> call;
        int expected;
    };
    for (const auto &[node, call, expected] : std::initializer_list<Row>{
             {"", [] { return is_file_valid("/opt/ulx/pram/ok", "/opt/ulx/pram/ok.sha256"); }, 1},
             {kP + "f.sha256", [] { return is_ram_file_valid("/opt/ulx/pram/f"); }, 0},
             {kP + "g", [] { return is_file_valid("/opt/ulx/pram/g", "/opt/ulx/pram/ok.sha256"); },
              0},
             {"->" + kP + "ok2.sha256",
              [] { return is_file_valid("/opt/ulx/pram/ok", "/opt/ulx/pram/ok2.sha256"); }, 0},
             {kP + "app_w", [] { return register_items("app", {item_cfg("w", JX_PROTECT_E)}); },
              JX_ERR_OPEN},
             {kS + "app_d.sha256",
              [] { return register_items("app", {item_cfg("d", JX_PROTECT_E)}); }, 0},
             {kP + "fsync_reg.ini", [] { return register_items("app", {item_cfg("t", 1)}); },
              JX_ERR_OPEN},
         }) {
        const bool link = node.rfind("->", 0) == 0;
        unlink(node.c_str());  // the table exists once a row registered
        ASSERT_EQ(node.empty() ? 0
                  : link       ? symlink("/dev/zero", node.c_str() + 2)
                               : mkfifo(node.c_str(), 0600),
                  0);
        EXPECT_EQ(in_child([&] { return alarm(20), call() == expected ? 0 : 1; }), 0) << node;
        EXPECT_TRUE(node.empty() || link || (stat_of(node).st_mode & 07777) == 0600) << node;
    }
}

}  // namespace
