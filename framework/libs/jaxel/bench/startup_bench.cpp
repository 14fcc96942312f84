#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "jaxel.h"
#include "support/builders.h"
#include "support/sandbox.h"

namespace {

// One start-up that registers n files new to an empty table: it shows whether
// start-up stays linear in the number of files.
void BM_StartUp(benchmark::State &state) {
    static int round = 0;
    for (auto _ : state) {
        state.PauseTiming();
        const std::string module = "s" + std::to_string(++round);
        std::vector<std::string> names;
        std::vector<JxItemCfg> items;
        for (int i = 0; i < state.range(0); ++i) {
            names.push_back(module + "_" + std::to_string(i));  // short names are process-wide
        }
        for (const std::string &name : names) {
            jx::test::write_file(jx::test::tier_path(module.c_str(), name.c_str()), "x");
            items.push_back(jx::test::item_cfg(name.c_str(), JX_PROTECT_E));
        }
        jx::test::write_file("/opt/ulx/pram/fsync_reg.ini", "");
        state.ResumeTiming();
        if (jx_init_cfg(items.data(), static_cast<int32_t>(items.size()), module.c_str()) != 0) {
            state.SkipWithError("start-up failed");
            break;
        }
    }
}
BENCHMARK(BM_StartUp)->Arg(250)->Arg(500)->Arg(1000)->Unit(benchmark::kMillisecond);

}  // namespace
