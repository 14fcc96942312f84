#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "frame/raii.h"
#include "jaxel.h"
#include "stress/stress_plan.h"
#include "support/sandbox.h"

namespace {

using namespace jx::stress;
using Clock = std::chrono::steady_clock;
using StressTest = jx::test::SandboxTest;

// Far beyond what the load needs even under sanitizers, valgrind or qemu: a
// worker still running then is stuck, not slow.
constexpr auto kDeadline = std::chrono::minutes(4);
constexpr int kStuck = -1;

struct Pipe {
    int read_fd = -1;
    int write_fd = -1;
};

Pipe make_pipe() {
    int fds[2] = {-1, -1};
    EXPECT_EQ(pipe2(fds, O_CLOEXEC), 0);
    return Pipe{fds[0], fds[1]};
}

pid_t start_worker(int index, const Pipe &ready, const Pipe &go) {
    const pid_t pid = fork();
    if (pid == 0) {
        close(ready.read_fd);
        close(go.write_fd);
        _exit(run_worker(index, Gate{ready.write_fd, go.read_fd}));
    }
    return pid;
}

int remaining_ms(Clock::time_point deadline) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}

// Every worker reports once it is registered; a worker that fails before that
// closes its end, so this returns early rather than wait for it.
int await_ready(int fd, Clock::time_point deadline) {
    int ready = 0;
    pollfd watch{fd, POLLIN, 0};
    while (ready < kWorkers && poll(&watch, 1, remaining_ms(deadline)) == 1) {
        char c = 0;
        if (read(fd, &c, 1) != 1) {
            break;
        }
        ++ready;
    }
    return ready;
}

int exit_status(int status) {
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// Exit statuses of the workers; one still running at the deadline is killed
// and reported as kStuck.
std::vector<int> wait_for_workers(const std::vector<pid_t> &pids, Clock::time_point deadline) {
    std::vector<int> statuses(pids.size(), kStuck);
    std::vector<bool> done(pids.size(), false);
    size_t left = pids.size();
    while (left > 0 && Clock::now() < deadline) {
        for (size_t i = 0; i < pids.size(); ++i) {
            int status = 0;
            if (!done[i] && waitpid(pids[i], &status, WNOHANG) == pids[i]) {
                statuses[i] = exit_status(status);
                done[i] = true;
                --left;
            }
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    for (size_t i = 0; i < pids.size(); ++i) {
        if (!done[i]) {
            kill(pids[i], SIGKILL);
            waitpid(pids[i], nullptr, 0);
        }
    }
    return statuses;
}

guint64 final_count() {
    jx::KeyFilePtr key(g_key_file_new());
    if (!g_key_file_load_from_file(key.get(), kKeyPath, G_KEY_FILE_NONE, nullptr)) {
        return 0;
    }
    return g_key_file_get_uint64(key.get(), kKeyGroup, kKeyName, nullptr);
}

// Several processes with several threads each register the same module files,
// then write, edit, clear and read them through their own handles while one of
// them keeps the shared key file held. Each worker checks its own results,
// descriptors and heap; afterwards every file must match its side file.
TEST_F(StressTest, ProcessesAndThreadsShareFilesWithoutDamageDeadlockOrLeak) {
    jx::test::write_file(kKeyPath, std::string("[") + kKeyGroup + "]\n" + kKeyName + "=0\n");
    const Pipe ready = make_pipe();
    const Pipe go = make_pipe();
    std::vector<pid_t> workers;
    for (int i = 0; i < kWorkers; ++i) {
        workers.push_back(start_worker(i, ready, go));
    }
    close(ready.write_fd);
    close(go.read_fd);
    const Clock::time_point deadline = Clock::now() + kDeadline;
    EXPECT_EQ(await_ready(ready.read_fd, deadline), kWorkers);
    close(go.write_fd);
    const std::vector<int> statuses = wait_for_workers(workers, deadline);
    close(ready.read_fd);

    for (int i = 0; i < kWorkers; ++i) {
        EXPECT_EQ(statuses[i], 0) << "worker " << i
                                  << (statuses[i] == kStuck ? " did not finish: deadlock"
                                                            : " failed, see its lines above");
    }
    for (const ModuleFile &file : kFiles) {
        EXPECT_EQ(is_ram_file_valid(file.path), 1) << file.path;
        const std::string content = jx::test::read_file(file.path);
        EXPECT_TRUE(is_record_text(content.data(), content.size())) << file.path;
    }
    EXPECT_EQ(is_ram_file_valid(kKeyPath), 1);
    EXPECT_EQ(final_count(), static_cast<guint64>(kWorkers * kKeyRounds));
}

}  // namespace
