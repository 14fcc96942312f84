#!/bin/sh
# Builds the libFuzzer targets with clang (AddressSanitizer + UndefinedBehavior-
# Sanitizer) and runs each for SECONDS on a copy of its seed corpus, two at a
# time. Any finding (crash, sanitizer report, leak, differing answer) fails the
# run; its input is kept in build-fuzz/findings. One line per target says how
# many inputs ran.
# usage: fuzz.sh SECONDS   (build folder: $FUZZ_BUILD_DIR, default build-fuzz)
set -eu
cd "$(dirname "$0")/.."
. scripts/ci/lib.sh

[ $# -eq 1 ] || { echo "usage: $0 SECONDS" >&2; exit 2; }
seconds=$1
dir=${FUZZ_BUILD_DIR:-build-fuzz}
fuzz=framework/libs/jaxel/fuzz
targets=$(ls "$fuzz/corpus")

mkdir -p "$dir"
CC=clang CXX=clang++
export CC CXX
logged "$dir/ci-configure.log" cmake -S . -B "$dir" \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DJAXEL_BUILD_FUZZERS=ON -DJAXEL_BUILD_TESTS=OFF \
  -DJAXEL_BUILD_BENCHMARKS=OFF -DJAXEL_BUILD_EXAMPLES=OFF
# shellcheck disable=SC2046,SC2086 # one word per target
logged "$dir/ci-build.log" cmake --build "$dir" -j"$JOBS" --target $(printf '%s_fuzz ' $targets)

# usage: run_target NAME -- runs one target, leaves its log and exit status
run_target() {
  work=$dir/fuzz-runs/$1
  rm -rf "$work" && mkdir -p "$work" "$dir/findings" && cp -R "$fuzz/corpus/$1" "$work/corpus"
  dict=""
  [ ! -f "$fuzz/$1.dict" ] || dict=-dict=$fuzz/$1.dict
  status=0
  # shellcheck disable=SC2086 # no dictionary is no word
  "$dir/$fuzz/$1_fuzz" -max_total_time="$seconds" -print_final_stats=1 -close_fd_mask=1 \
    -artifact_prefix="$dir/findings/$1-" $dict "$work/corpus" >"$work/log" 2>&1 || status=$?
  echo "$status" >"$work/status"
}

# usage: report NAME -- one line; fails when the target found something
report() {
  work=$dir/fuzz-runs/$1
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$work/log")
  cov=$(grep -oE 'cov: [0-9]+' "$work/log" | tail -n 1)
  if [ "$(cat "$work/status")" != 0 ]; then
    tail -n 60 "$work/log"
    echo "FAILED: fuzz target $1 found a problem after ${runs:-?} inputs (log: $work/log)" >&2
    return 1
  fi
  echo "fuzz $1: $runs inputs in ${seconds}s, $cov"
}

banner "libFuzzer targets: ${seconds}s each"
# shellcheck disable=SC2086 # one word per target
set -- $targets
failed=0
while [ $# -gt 0 ]; do
  first=$1 && shift
  run_target "$first" &
  if [ $# -gt 0 ]; then
    second=$1 && shift
    run_target "$second"
  fi
  wait
done
for target in $targets; do
  report "$target" || failed=1
done
exit $failed
