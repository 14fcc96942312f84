#include <string>

#include <benchmark/benchmark.h>

#include "jaxel.h"

namespace {

// One durable whole-content write: open, write, flush, fsync, close.
void BM_SetContent(benchmark::State &state) {
    const std::string content(static_cast<std::size_t>(state.range(0)), 'c');
    for (auto _ : state) {
        benchmark::DoNotOptimize(jx_set_content("/opt/ulx/save/bench", content.data(),
                                                static_cast<uint32_t>(content.size())));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(BM_SetContent)->Arg(64)->Arg(4096)->Arg(1 << 20);

}  // namespace
