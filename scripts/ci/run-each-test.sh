#!/bin/sh
# Runs every test of a GoogleTest binary in a process of its own, as CTest does,
# under an optional wrapper command (valgrind, setarch). Shows the output of each
# failing test and ends with "NAME: N passed, M failed".
# usage: run-each-test.sh BINARY [WRAPPER [ARGS...]]
set -eu
binary=$1
shift
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

"$binary" --gtest_list_tests >"$work/list"
awk '/^[^ ]/ { suite = $1 } /^  / { print suite $1 }' "$work/list" >"$work/tests"
[ -s "$work/tests" ] || { echo "$binary: no tests found" >&2; exit 1; }

# Each test leaves its log and an .ok or .failed mark, named without its slashes.
export binary work
# shellcheck disable=SC2016 # expanded by the inner shell
xargs -P "${JOBS:-$(nproc)}" -I{} sh -c '
  name=$1
  shift
  file="$work/$(echo "$name" | tr / _)"
  if "$@" "$binary" --gtest_filter="$name" >"$file.log" 2>&1; then
    : >"$file.ok"
  else
    : >"$file.failed"
  fi' each-test {} "$@" <"$work/tests"

failed=0
for result in "$work"/*.failed; do
  [ -e "$result" ] || continue
  failed=$((failed + 1))
  test_name=$(basename "$result" .failed)
  echo "---- $test_name failed:"
  cat "$work/$test_name.log"
done
passed=$(find "$work" -name '*.ok' | wc -l)
echo "$(basename "$binary"): $passed passed, $failed failed"
[ "$failed" -eq 0 ]
