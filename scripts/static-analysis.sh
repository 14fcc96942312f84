#!/bin/sh
# clang-tidy (checks in .clang-tidy) over the library, the platform substitutes
# and the example, cppcheck over all our sources including the tests, and the
# scripts through shellcheck. Any finding fails; a justified one is suppressed
# on its line (NOLINT(check), cppcheck-suppress, or a shellcheck disable
# directive) with the reason beside it.
# usage: static-analysis.sh BUILD_DIR   (a build configured with compile commands)
set -eu
cd "$(dirname "$0")/.."
build=$1
[ -f "$build/compile_commands.json" ] || { echo "no $build/compile_commands.json" >&2; exit 1; }

# The tests are left to cppcheck: clang-tidy spends minutes in the GoogleTest
# headers for findings about the macros, not about our code.
tidy_sources=$(find framework/libs/jaxel/src framework/platform/kel framework/platform/safestr \
  framework/platform/pflash examples -name '*.c' -o -name '*.cpp' | sort)
tidy_log="$build/ci-clang-tidy.log"
if ! echo "$tidy_sources" | xargs -P "${JOBS:-$(nproc)}" -n 4 \
  clang-tidy -p "$build" --quiet --use-color=false >"$tidy_log" 2>&1; then
  # Each header finding is reported once for every file that includes it.
  grep -E '^[^ ].*: (warning|error): ' "$tidy_log" | sort -u
  grep -E '^Error|error: unable' "$tidy_log" || true
  echo "FAILED: clang-tidy (whole output in $tidy_log)" >&2
  exit 1
fi
echo "clang-tidy: no findings in $(echo "$tidy_sources" | wc -l) files"

includes=""
for dir in framework/libs/jaxel/include framework/libs/jaxel/src framework/libs/jaxel/tests \
  framework/platform/*/include; do
  includes="$includes -I $dir"
done
# One process: with -j, cppcheck 2.10 ignores suppressions by symbol name.
# shellcheck disable=SC2086 # the include options are split on purpose
cppcheck --quiet --error-exitcode=1 --inline-suppr \
  --std=c++20 --enable=warning,style,performance,portability \
  --library=googletest --suppress-xml=scripts/ci/cppcheck-suppressions.xml \
  $includes framework examples
echo "cppcheck: no findings"

shellcheck scripts/*.sh scripts/ci/*.sh examples/*.sh tests/*.sh .ci/run
echo "shellcheck: no findings"
