#!/bin/sh
# Builds everything and runs the whole test suite with its quality gates:
# formatting and the layering of the subsystems, static analysis, a leak check
# under valgrind, the suite under AddressSanitizer + UndefinedBehaviorSanitizer,
# the threaded tests under ThreadSanitizer, the armhf cross build under qemu,
# the seeded faults that the suite must catch, a minute of each fuzz target
# under the sanitizers (scripts/fuzz.sh), a short smoke run of the
# benchmarks (so that they keep building and running; the full run is a
# developer command, see the README), and last the plain suite, whose CTest
# summary closes the run. Any finding fails the run.
# usage: run-tests.sh [STAGE...]
#   stages: format build analyze leaks sanitizers armhf faults fuzz bench test
#   (default: all, in this order)
set -eu
cd "$(dirname "$0")/.."
. scripts/ci/lib.sh

plain=build-tests
bench=build-bench

build_stage() {
  banner "plain build"
  configure_and_build "$plain" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_EXPORT_COMPILE_COMMANDS=ON
}

# The plain build leaves the benchmarks out, so they get a build of their own.
bench_stage() {
  banner "benchmarks: smoke run"
  configure_and_build "$bench" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DJAXEL_BUILD_BENCHMARKS=ON \
    -DJAXEL_BUILD_TESTS=OFF -DJAXEL_BUILD_EXAMPLES=OFF
  logged "$bench/ci-bench.log" "$bench/framework/libs/jaxel/bench/jaxel_bench" \
    --benchmark_min_time=0.01
  echo "benchmarks: $(grep -c '^BM_' "$bench/ci-bench.log") ran"
}

[ $# -gt 0 ] || set -- format build analyze leaks sanitizers armhf faults fuzz bench test
for stage in "$@"; do
  case $stage in
  format)
    banner "formatting and layers"
    scripts/check-format.sh
    scripts/check-layers.sh
    ;;
  build) build_stage ;;
  analyze) banner "static analysis" && scripts/static-analysis.sh "$plain" ;;
  leaks) scripts/check-leaks.sh "$plain" ;;
  sanitizers) scripts/test-sanitizers.sh ;;
  armhf) scripts/test-armhf.sh ;;
  faults) banner "seeded faults" && scripts/seed-faults.sh -j"$JOBS" ;;
  fuzz) scripts/fuzz.sh 60 ;;
  bench) bench_stage ;;
  test)
    banner "plain build: whole suite"
    ctest --test-dir "$plain" -j"$JOBS" --output-on-failure --timeout 300 --no-tests=error
    ;;
  *) echo "unknown stage: $stage" >&2 && exit 2 ;;
  esac
done
