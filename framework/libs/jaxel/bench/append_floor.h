// The loop every append floor shares: one append per iteration on a file of
// state.range(0) bytes, cut back to that size between iterations, untimed.
#pragma once

#include <fcntl.h>
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
    const int fd = ::open(path.c_str(), O_RDWR);
    for (auto _ : state) {
        if (!append(fd, path)) {
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
