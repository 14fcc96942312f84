#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "kel.h"

namespace {

int run(std::vector<const char *> args) {
    args.push_back(nullptr);
    return kel_system_s(args[0], const_cast<char *const *>(args.data()));
}

}  // namespace

// The vector reaches the program as it is: no shell, no PATH search; O_CLOEXEC stays behind.
TEST(KelSystem, ReturnsZeroOnlyForSuccessAndPassesExactlyItsVector) {
    const int hidden = open("/dev/null", O_RDONLY | O_CLOEXEC),
              shared = open("/dev/null", O_RDONLY);
    const std::string probe = "test -e /proc/self/fd/", hidden_fd = probe + std::to_string(hidden),
                      shared_fd = probe + std::to_string(shared);
    const std::pair<std::vector<const char *>, int> rows[] = {
        {{"/bin/true"}, 0},
        {{"/bin/false"}, 1},
        {{"/bin/sh", "-c", "exit 7"}, 7},
        {{"/bin/sh", "-c", "kill -9 $$"}, 128 + SIGKILL},
        {{"/bin/sh", "-c", "test \"$1\" = 'a b;c*' && test $# -eq 1", "sh", "a b;c*"}, 0},
        {{"/bin/sh", "-c", shared_fd.c_str()}, 0},
        {{"/bin/sh", "-c", hidden_fd.c_str()}, 1},
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
