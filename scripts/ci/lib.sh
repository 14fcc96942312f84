# shellcheck shell=sh
# Helpers of the CI stages, sourced by them from the repository root: builds and
# test runs keep their output in a log inside the build folder and show it only
# when they fail.

JOBS=${JOBS:-$(nproc)}

# Each stage's banner tells the time spent since the first banner.
CI_STARTED=${CI_STARTED:-$(date +%s)}
export CI_STARTED
banner() {
  spent=$(($(date +%s) - CI_STARTED))
  printf '\n==== %s (at %dm%02ds)\n' "$*" $((spent / 60)) $((spent % 60))
}

# usage: logged LOG COMMAND [ARGS...]
logged() {
  log=$1
  shift
  if ! "$@" >"$log" 2>&1; then
    tail -n 150 "$log"
    echo "FAILED: $* (whole output in $log)" >&2
    return 1
  fi
}

# usage: configure_and_build DIR [CMAKE ARGS...]
configure_and_build() {
  dir=$1
  shift
  mkdir -p "$dir"
  logged "$dir/ci-configure.log" cmake -S . -B "$dir" -DJAXEL_BUILD_BENCHMARKS=OFF "$@"
  logged "$dir/ci-build.log" cmake --build "$dir" -j"$JOBS"
}

# Runs the suite of a build folder; prints one summary line, or on failure the
# failing tests with their output. A run that finds no test fails.
# usage: run_ctest NAME DIR [CTEST ARGS...]
run_ctest() {
  name=$1
  dir=$2
  shift 2
  log="$dir/ci-ctest.log"
  if ctest --test-dir "$dir" -j"$JOBS" --output-on-failure --timeout 600 --no-tests=error "$@" \
    >"$log" 2>&1; then
    echo "$name: $(grep -E '^[0-9]+% tests passed' "$log")"
  else
    grep -vE '^ *(Start +[0-9]+:|[0-9]+/[0-9]+ Test +#[0-9]+: .* Passed)' "$log"
    echo "FAILED: $name test suite (whole output in $log)" >&2
    return 1
  fi
}
