#include <benchmark/benchmark.h>

#include "support/sandbox.h"

int main(int argc, char **argv) {
    if (!jx::test::enter_sandbox()) {
        return 1;
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
