#!/bin/sh
# valgrind memcheck over the example program and over test binaries that cover
# the handle, write, packaging and key-file paths: any memory error, or any
# definite or indirect leak, fails. Suppressions, each with its reason, are in
# scripts/ci/valgrind.supp.
# usage: check-leaks.sh BUILD_DIR
set -eu
cd "$(dirname "$0")/.."
. scripts/ci/lib.sh
build=$1
tests=${LEAK_CHECK_TESTS:-handles_test keyfile_test maintenance_test}
memcheck="valgrind --quiet --leak-check=full --show-leak-kinds=definite,indirect
  --errors-for-leak-kinds=definite,indirect --error-exitcode=1
  --suppressions=$PWD/scripts/ci/valgrind.supp"

banner "valgrind memcheck"
# The example restarts itself in fresh processes; those are checked too, the
# system programs that the library runs are not.
# shellcheck disable=SC2086
logged "$build/ci-valgrind-example.log" examples/run-in-sandbox.sh $memcheck \
  --trace-children=yes --trace-children-skip='/bin/*,/usr/bin/*' \
  "$build/examples/jaxel_service_demo"
echo "jaxel_service_demo: no memory errors or leaks"

failed=""
for name in $tests; do
  binary=$(find "$build/framework" -type f -name "$name" -perm -u+x | head -n 1)
  [ -n "$binary" ] || { echo "test binary $name not found in $build" >&2; exit 1; }
  # Children that tests fork to simulate a power cut end mid-operation.
  # shellcheck disable=SC2086
  scripts/ci/run-each-test.sh "$binary" $memcheck --child-silent-after-fork=yes ||
    failed="$failed $name"
done
[ -z "$failed" ] || { echo "FAILED under valgrind:$failed" >&2; exit 1; }
