// The loop every append floor shares: one append per iteration on a file of
// state.range(0) bytes, cut back to that size between iterations, untimed.
// Each append is framed as every protected write is: the reboot-flag test and
// the handle's lock before it; the side file's mode 0600, the stream's seek
// after the new content and the unlock after it.
#pragma once

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include <benchmark/benchmark.h>

#include "support/sandbox.h"

namespace jx::bench {

template <typename Append>
void run_append_floor(benchmark::State &state, const char *name, Append append) {
    const auto size = static_cast<off_t>(state.range(0));
    const std::string path = std::string("/opt/ulx/pram/") + name + std::to_string(size);
    jx::test::write_file(path, std::string(static_cast<std::size_t>(size), 'd'));
    const std::string side = path + ".sha256";
    const int fd = ::open(path.c_str(), O_RDWR);
    for (auto _ : state) {
        const bool framed = ::access("/dev/shm/.Reboot.flag", F_OK) != 0 &&
                            ::flock(fd, LOCK_EX) == 0 && append(fd, path) &&
                            ::chmod(side.c_str(), 0600) == 0 && ::lseek(fd, 0, SEEK_END) > 0 &&
                            ::flock(fd, LOCK_UN) == 0;
        if (!framed) {
            state.SkipWithError("floor append failed");
            break;
        }
        state.PauseTiming();
        (void)::ftruncate(fd, size);
        state.ResumeTiming();
    }
    ::close(fd);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

}  // namespace jx::bench
