// Several processes, each with several threads, register one module's files and change them
// at once through their own handles.
#include <atomic>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "support/support.h"

namespace {

using namespace jx::test;
constexpr int kWorkers = 3, kThreads = 3, kRounds = 300;

// The ledger only grows, so a write lost between two writers shows in its length; the journal
// is also cut and cleared under the writers' feet.
int churn(const char *name) {
    Handle file = open_handle(name, "a+");
    int failures = file == nullptr;
    for (int round = 0; round < kRounds && failures == 0; ++round) {
        failures += write_text(file.get(), "record;\n") != 8 || jx_insert("<", 1, 0, file.get());
        failures += name[0] == 'j' &&
                    (jx_delete(20, 2, file.get()) || (round % 8 == 0 && jx_clear_file(name)));
    }
    return failures;
}

int worker() {
    alarm(240);  // a deadlocked worker is ended instead of hanging the run
    std::atomic<int> failures = register_items(
        "stress", {item_cfg("journal", JX_PROTECT_E), item_cfg("ledger", JX_PROTECT_R)});
    {
        std::vector<std::jthread> threads;  // joined when it goes
        for (int t = 0; t < 2 * kThreads; ++t)
            threads.emplace_back(
                [&failures, t] { failures += churn(t % 2 ? "journal" : "ledger"); });
    }
    return failures.load() != 0;
}

TEST_F(SandboxTest, ProcessesAndThreadsKeepContentAndSideFilesInStep) {
    std::vector<pid_t> workers(kWorkers);
    for (pid_t &pid : workers)
        if ((pid = fork()) == 0)
            _exit(worker());
    for (const pid_t pid : workers) {
        int status = -1;
        EXPECT_TRUE(waitpid(pid, &status, 0) == pid && WIFEXITED(status) && !WEXITSTATUS(status));
    }
    for (const char *name : {"journal", "ledger"}) {
        const std::string path = tier_path("stress", name);
        EXPECT_EQ(read_file(path + ".sha256"), side_file_text(read_file(path))) << name;
    }
    EXPECT_EQ(read_file(tier_path("stress", "ledger")).size(), 9u * kWorkers * kThreads * kRounds);
}

}  // namespace
