#include <signal.h>

#include <algorithm>
#include <sys/inotify.h>
#include <sys/wait.h>

#include <glib.h>

#include "recovery/recovery.h"
#include "service.h"
#include "syncd_state.h"
#include "table_snapshot.h"
#include "tools_fixture.h"

namespace {

using namespace jx::test;
using jx::tools::SyncResult;

const std::string kDurableB = "/opt/ulx/save/md_b";

// Polls until `done` holds or the deadline (ms from now) has passed.
template <typename Done>
bool within_ms(int64_t ms, Done done) {
    const int64_t deadline = g_get_monotonic_time() + ms * 1000;
    for (; !done(); g_usleep(10000))
        if (g_get_monotonic_time() > deadline)
            return false;
    return true;
}

class SyncdTest : public SandboxTest {};

TEST_F(SyncdTest, PropagatesValidWritesWithinTheDebounce) {
    lay_registered("alpha");
    write_through_library("b", "one");
    const int pid = start_tool(JAXEL_SYNCD_PATH, {"--debounce-ms=200", "--max-delay-ms=400"});
    ASSERT_GT(pid, 0);
    EXPECT_TRUE(within_ms(5000, [] { return read_file(kDurableB) == "one"; }));
    write_through_library("a", "beta");
    EXPECT_TRUE(within_ms(200 + 1000, [] { return read_file(kDurable) == "beta"; }));
    write_file(kWork, "junk");  // fails its side file: never propagated
    write_through_library("b", "two");
    EXPECT_TRUE(within_ms(200 + 1000, [] { return read_file(kDurableB) == "two"; }));
    EXPECT_EQ(read_file(kDurable), "beta");
    kill(pid, SIGTERM);
    int status = -1;
    EXPECT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    jx::tools::SyncdState state;
    ASSERT_TRUE(jx::tools::read_syncd_state(state));
    ASSERT_EQ(state.files.size(), 3u);
    EXPECT_EQ(state.files.at(1).path, kWork);
    EXPECT_GT(state.files.at(1).last_sync, 0);
}

TEST_F(SyncdTest, OnePassHoldsItsBudget) {
    const std::string eighty(80, 'x');
    lay_registered(eighty);
    write_through_library("b", eighty);
    // Each file costs two pairs of 80 + 65 bytes: the burst lets one through.
    const ToolRun once = run_tool(JAXEL_SYNCD_PATH, {"--once", "--bytes-per-day=1", "--burst=100"});
    EXPECT_EQ(once.exit, 1 | 4);
    EXPECT_NE(exists(kDurable), exists(kDurableB));
    jx::tools::SyncdState state;
    ASSERT_TRUE(jx::tools::read_syncd_state(state));
    EXPECT_EQ(std::count_if(state.files.begin(), state.files.end(),
                            [](const auto &file) { return file.pending; }),
              1);
}

TEST_F(SyncdTest, QueueOverflowRescansEverything) {
    lay_registered("alpha");
    jx::tools::Service service({0, 0, 3600, 1000, 0, 1, ""});
    ASSERT_TRUE(service.reload());
    EXPECT_EQ(service.pass(true), 1);
    write_through_library("a", "beta");
    inotify_event overflow{};
    overflow.wd = -1;
    overflow.mask = IN_Q_OVERFLOW;
    service.watcher().dispatch(reinterpret_cast<const char *>(&overflow), sizeof overflow);
    EXPECT_EQ(service.pass(false), 1);
    EXPECT_EQ(read_file(kDurable), "beta");
}

// A power cut before each write of a sync leaves one pair that verifies, and
// recovery makes both verify again.
TEST_F(SyncdTest, CrashDuringSyncLeavesAPairThatVerifies) {
    lay_registered("alpha");
    ASSERT_EQ(run_tool(JAXELCTL_PATH, {"sync"}).exit, 1);
    write_through_library("a", "beta");
    jx::tools::TableSnapshot snapshot;
    ASSERT_EQ(jx::tools::take_snapshot(1000, snapshot), jx::tools::SnapshotResult::kOk);
    const jx::RegItem item = jx::tools::select_items(snapshot, {kWork.c_str()}).at(0);
    const auto laid = all_files();
    for (int nth = 1;; ++nth) {
        SCOPED_TRACE(nth);
        for (const auto &[path, content] : laid)
            write_file(path, content);
        const int status = in_child([&] {
            IoFaults faults;
            faults.crash_before(Call::kFwrite, nth);
            return static_cast<int>(jx::tools::sync_item(item, false, nullptr).result);
        });
        EXPECT_TRUE(jx::is_file_valid(item.dst, item.crc) ||
                    jx::is_file_valid(item.bak, item.bakcrc));
        EXPECT_EQ(jx::jx_recover_dst_file(&item), 0);
        EXPECT_EQ(jx::is_file_valid(item.dst, item.crc) + jx::is_file_valid(item.bak, item.bakcrc),
                  2);
        if (status != kCrashExitStatus) {
            EXPECT_EQ(status, static_cast<int>(SyncResult::kWritten));
            EXPECT_EQ(read_file(kDurable), "beta");
            break;
        }
    }
}

}  // namespace
