#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "kel.h"

namespace {

int run(std::vector<std::string> args) {
    std::vector<char *> argv;
    for (std::string &arg : args) {
        argv.push_back(arg.data());
    }
    argv.push_back(nullptr);
    return kel_system_s(args[0].c_str(), argv.data());
}

double now_ms() {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<double>(ts.tv_sec) * 1e3 + static_cast<double>(ts.tv_nsec) / 1e6;
}

void on_alarm(int) {}

// Interrupts the calling thread every 10 ms with a handler that does not
// restart system calls, until destroyed.
class AlarmStorm {
public:
    AlarmStorm() {
        struct sigaction sa {};
        sa.sa_handler = on_alarm;
        sigemptyset(&sa.sa_mask);
        sigaction(SIGALRM, &sa, &old_);
        itimerval every{{0, 10000}, {0, 10000}};
        setitimer(ITIMER_REAL, &every, nullptr);
    }
    ~AlarmStorm() {
        itimerval off{};
        setitimer(ITIMER_REAL, &off, nullptr);
        sigaction(SIGALRM, &old_, nullptr);
    }

private:
    struct sigaction old_ {};
};

}  // namespace

TEST(KelSystem, ReportsHowTheProgramEnded) {
    EXPECT_EQ(run({"/bin/true"}), 0);
    EXPECT_NE(run({"/bin/false"}), 0);
    EXPECT_EQ(run({"/bin/sh", "-c", "exit 7"}), 7);
    EXPECT_EQ(run({"/bin/sh", "-c", "kill -9 $$"}), 128 + SIGKILL);
    EXPECT_EQ(run({"/nonexistent/program"}), -1);
    EXPECT_EQ(run({"true"}), -1) << "no PATH search";
    char *argv[] = {nullptr};
    EXPECT_EQ(kel_system_s(nullptr, argv), -1);
    EXPECT_EQ(kel_system_s("/bin/true", nullptr), -1);
}

TEST(KelSystem, PassesArgumentsAndEnvironmentUnchanged) {
    EXPECT_EQ(
        run({"/bin/sh", "-c", "test \"$1\" = 'a b;c' && test $# -eq 2", "sh", "a b;c", "$HOME"}),
        0);
    EXPECT_NE(run({"/bin/sh", "-c", "test \"$1\" = a", "sh", "a b"}), 0);
    ASSERT_EQ(setenv("KEL_PROBE", "x y", 1), 0);
    EXPECT_EQ(run({"/bin/sh", "-c", "test \"$KEL_PROBE\" = 'x y'"}), 0);
}

TEST(KelSystem, ChildSeesOnlyInheritableDescriptors) {
    const int hidden = open("/dev/null", O_RDONLY | O_CLOEXEC);
    const int shared = open("/dev/null", O_RDONLY);
    ASSERT_GE(hidden, 0);
    ASSERT_GE(shared, 0);
    const std::string probe = "test -e /proc/self/fd/";
    EXPECT_NE(run({"/bin/sh", "-c", probe + std::to_string(hidden)}), 0);
    EXPECT_EQ(run({"/bin/sh", "-c", probe + std::to_string(shared)}), 0);
    close(hidden);
    close(shared);
}

TEST(KelSystem, WaitSurvivesSignals) {
    AlarmStorm storm;
    EXPECT_EQ(run({"/bin/sleep", "0.2"}), 0);
}

TEST(KelDelay, SleepsAtLeastTheRequestedTime) {
    double start = now_ms();
    kel_task_delay(0);
    kel_task_delay(30);
    EXPECT_GE(now_ms() - start, 30.0);

    AlarmStorm storm;
    start = now_ms();
    kel_task_delay(120);
    EXPECT_GE(now_ms() - start, 120.0);
}
