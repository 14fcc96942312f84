#!/bin/sh
# The whole suite under AddressSanitizer + UndefinedBehaviorSanitizer, and every
# test binary that starts threads under ThreadSanitizer. A finding ends the test
# that made it with an error, which fails the stage.
# usage: test-sanitizers.sh [address] [thread]   (default: both)
set -eu
cd "$(dirname "$0")/.."
. scripts/ci/lib.sh

sanitized="-DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_PROJECT_INCLUDE=$PWD/cmake/JaxelSanitize.cmake"

address_stage() {
  banner "AddressSanitizer + UndefinedBehaviorSanitizer: whole suite"
  # shellcheck disable=SC2086
  configure_and_build build-ci-asan $sanitized -DJAXEL_SANITIZE=address,undefined
  ASAN_OPTIONS=detect_leaks=1:halt_on_error=1:detect_stack_use_after_return=1
  ASAN_OPTIONS=$ASAN_OPTIONS:strict_string_checks=1:check_initialization_order=1
  # The pkg-config consumer test links the instrumented library into a plain
  # program, so the runtime cannot come first there.
  ASAN_OPTIONS=$ASAN_OPTIONS:verify_asan_link_order=0
  export ASAN_OPTIONS UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1
  run_ctest "asan+ubsan" build-ci-asan
}

# Targets built from a test source that starts threads, read from the object
# paths of the compile commands (.../CMakeFiles/<target>.dir/<source>.o).
threaded_test_targets() {
  grep -rlE 'std::j?thread|pthread_create|g_thread_new' --include='*.cpp' --exclude-dir=support \
    framework/libs/jaxel/tests framework/platform/tests | while read -r source; do
    grep -F "$PWD/$source\"" "$1/compile_commands.json" |
      sed -nE 's|.*CMakeFiles/([^/ ]+)\.dir/.*|\1|p'
  done | sort -u
}

thread_stage() {
  banner "ThreadSanitizer: test binaries that start threads"
  dir=build-ci-tsan
  mkdir -p "$dir"
  # shellcheck disable=SC2086
  logged "$dir/ci-configure.log" cmake -S . -B "$dir" -DJAXEL_BUILD_BENCHMARKS=OFF \
    -DCMAKE_EXPORT_COMPILE_COMMANDS=ON $sanitized -DJAXEL_SANITIZE=thread
  targets=$(threaded_test_targets "$dir")
  [ -n "$targets" ] || { echo "no threaded test binaries found" >&2; return 1; }
  # shellcheck disable=SC2086
  logged "$dir/ci-build.log" cmake --build "$dir" -j"$JOBS" --target $targets
  export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1:suppressions=$PWD/scripts/ci/tsan.supp"
  failed=""
  for target in $targets; do
    binary=$(find "$dir" -type f -name "$target" -perm -u+x | head -n 1)
    # ThreadSanitizer's fixed memory layout needs address randomisation off.
    setarch "$(uname -m)" -R scripts/ci/run-each-test.sh "$binary" || failed="$failed $target"
  done
  [ -z "$failed" ] || { echo "FAILED under ThreadSanitizer:$failed" >&2; return 1; }
}

[ $# -gt 0 ] || set -- address thread
for stage in "$@"; do
  "${stage}_stage"
done
