#include <cstdio>
#include <string>

#include <benchmark/benchmark.h>

#include "support/sandbox.h"

int main(int argc, char **argv) {
    std::string why;
    if (!jx::test::enter_sandbox(why)) {
        std::fprintf(stderr, "cannot enter the benchmark sandbox: %s\n", why.c_str());
        return 1;
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
