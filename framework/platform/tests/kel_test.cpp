#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
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

}  // namespace

// The vector reaches the program as it is: no shell, no PATH search; O_CLOEXEC stays behind.
TEST(KelSystem, ReturnsZeroOnlyForSuccessAndPassesExactlyItsVector) {
    const int hidden = open("/dev/null", O_RDONLY | O_CLOEXEC),
              shared = open("/dev/null", O_RDONLY);
    const std::string fd = "test -e /proc/self/fd/";
    const std::pair<std::vector<std::string>, int> rows[] = {
        {{"/bin/true"}, 0},
        {{"/bin/false"}, 1},
        {{"/bin/sh", "-c", "exit 7"}, 7},
        {{"/bin/sh", "-c", "kill -9 $$"}, 128 + SIGKILL},
        {{"/bin/sh", "-c", "test \"$1\" = 'a b;c*' && test $# -eq 1", "sh", "a b;c*"}, 0},
        {{"/bin/sh", "-c", fd + std::to_string(shared)}, 0},
        {{"/bin/sh", "-c", fd + std::to_string(hidden)}, 1},
    };
    for (const auto &[args, rc] : rows) {
        EXPECT_EQ(run(args), rc) << args.back();
    }
    close(hidden);
    close(shared);
}

// Left out under qemu-user, where a program that cannot start shows as exit status 127.
TEST(KelSystem, ReportsHowTheProgramEnded) {
    EXPECT_EQ(run({"/nonexistent/program"}), -1);
    EXPECT_EQ(run({"true"}), -1);
}
