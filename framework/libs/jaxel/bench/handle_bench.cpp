#include <string>

#include <benchmark/benchmark.h>

#include "jaxel.h"
#include "registry/registry.h"
#include "support/registration.h"
#include "support/sandbox.h"

namespace {

JxItemCfg config(const char *short_name, uint32_t mode) {
    JxItemCfg cfg{};
    cfg.short_name = short_name;
    cfg.protect_mode = mode;
    cfg.privilege = 0x644;
    return cfg;
}

// A protected write rebuilds, digests twice and rewrites the whole file, so its
// cost follows the file size, not the size of the write.
void BM_ProtectedAppend(benchmark::State &state) {
    jx::test::reset_sandbox();
    jx_set_module_name("bench");
    jx::test::register_for_test("bench", config("data", JX_PROTECT_E));
    const std::string existing(static_cast<std::size_t>(state.range(0)), 'd');
    jx::test::write_file("/opt/ulx/pram/bench_data", existing);
    JxFile *file = jx_fopen("data", "r+");
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
BENCHMARK(BM_ProtectedAppend)->Arg(4096)->Arg(1 << 20);

// Every open and flush reads the registration table; this is its cost for a
// controller with many registered files.
void BM_TableLookup(benchmark::State &state) {
    jx::test::reset_sandbox();
    const int files = static_cast<int>(state.range(0));
    std::string last;
    for (int i = 0; i < files; ++i) {
        const std::string name = "file" + std::to_string(i);
        last = jx::test::register_for_test("bench", config(name.c_str(), JX_PROTECT_E));
    }
    for (auto _ : state) {
        RegItem *record = get_reg_inter_info(last.c_str());
        benchmark::DoNotOptimize(record);
        g_free(record);
    }
}
BENCHMARK(BM_TableLookup)->Arg(16)->Arg(256);

}  // namespace
