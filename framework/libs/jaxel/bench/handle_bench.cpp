#include <set>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "jaxel.h"
#include "support/builders.h"
#include "support/sandbox.h"

namespace {

// A protected write rebuilds, digests twice and rewrites the whole file, so its
// cost follows the file size, not the size of the write.
void BM_ProtectedAppend(benchmark::State &state) {
    const std::string name = "data" + std::to_string(state.range(0));
    const std::string existing(static_cast<std::size_t>(state.range(0)), 'd');
    static std::set<std::string> registered;
    if (registered.insert(name).second) {
        jx::test::write_file(jx::test::tier_path("bench", name.c_str()), existing);
        jx::test::register_items("bench", {jx::test::item_cfg(name.c_str(), JX_PROTECT_E)});
    }
    JxFile *file = jx_fopen(name.c_str(), "r+");
    if (file == nullptr) {
        state.SkipWithError("cannot open the file");
        return;
    }
    const char record[] = "0123456789abcdef";
    for (auto _ : state) {
        benchmark::DoNotOptimize(jx_fwrite(record, 1, sizeof record - 1, file));
        state.PauseTiming();
        jx_delete(sizeof record - 1, static_cast<uint32_t>(existing.size()), file);
        state.ResumeTiming();
    }
    jx_fclose(file);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(BM_ProtectedAppend)->Arg(4096)->Arg(64 << 10)->Arg(1 << 20);

// Every open reads the registration table; this is the cost of opening and
// closing one file for a controller with many registered files.
// The table is not wiped between runs: the process keeps its registrations, so
// each table size registers names of its own and a repeated run adds nothing.
void BM_OpenClose(benchmark::State &state) {
    std::vector<std::string> names;
    for (int i = 0; i < state.range(0); ++i) {
        names.push_back("g" + std::to_string(state.range(0)) + "_" + std::to_string(i));
    }
    std::vector<JxItemCfg> items;
    for (const std::string &name : names) {
        jx::test::write_file(jx::test::tier_path("bench", name.c_str()), "x");
        items.push_back(jx::test::item_cfg(name.c_str(), JX_PROTECT_E));
    }
    if (jx::test::register_items("bench", items) != JX_OK) {
        state.SkipWithError("registration failed");
        return;
    }
    for (auto _ : state) {
        JxFile *file = jx_fopen(names.back().c_str(), "r");
        if (file == nullptr) {
            state.SkipWithError("cannot open the file");
            break;
        }
        jx_fclose(file);
    }
}
BENCHMARK(BM_OpenClose)->Arg(10)->Arg(1000);

}  // namespace
