#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "jaxel.h"
#include "support/builders.h"
#include "support/sandbox.h"

namespace {

// `count` configuration elements for files named prefix_0.. of `module`, each
// with a one-byte working copy. Short names are process-wide, so each caller
// passes a prefix of its own; `names` keeps the strings the elements point to.
std::vector<JxItemCfg> make_items(const std::string &module, const std::string &prefix,
                                  int64_t count, std::vector<std::string> &names) {
    std::vector<JxItemCfg> items;
    names.reserve(static_cast<std::size_t>(count));
    for (int64_t i = 0; i < count; ++i) {
        names.push_back(prefix + "_" + std::to_string(i));
        jx::test::write_file(jx::test::tier_path(module.c_str(), names.back().c_str()), "x");
        items.push_back(jx::test::item_cfg(names.back().c_str(), JX_PROTECT_E));
    }
    return items;
}

// Every open reads the registration table; this is the cost of opening and
// closing one file for a controller with many registered files.
// The table is not wiped between runs: the process keeps its registrations, so
// each table size registers names of its own and a repeated run adds nothing.
void BM_OpenClose(benchmark::State &state) {
    std::vector<std::string> names;
    const auto items = make_items("bench", std::string("g").append(std::to_string(state.range(0))),
                                  state.range(0), names);
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

// One start-up that registers n files new to an empty table: it shows whether
// start-up stays linear in the number of files.
void BM_StartUp(benchmark::State &state) {
    static int round = 0;
    for (auto _ : state) {
        state.PauseTiming();
        const std::string module = std::string("s").append(std::to_string(++round));
        std::vector<std::string> names;
        const auto items = make_items(module, module, state.range(0), names);
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
