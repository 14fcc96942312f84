#!/bin/sh
# Builds libjaxel with its tools and runs the example service program in a
# private sandbox. With --keep DIR the sandbox stays in DIR (which must be empty
# or absent) to be looked at afterwards.
# usage: run-example.sh [--keep DIR]
set -eu
cd "$(dirname "$0")/.."
keep=""
if [ "${1-}" = --keep ]; then
  [ $# -eq 2 ] || { echo "usage: $0 [--keep DIR]" >&2 && exit 2; }
  [ ! -e "$2" ] || [ -z "$(ls -A "$2")" ] || { echo "$0: $2 is not empty" >&2 && exit 2; }
  keep=$2
fi
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release -DJAXEL_BUILD_TESTS=OFF -DJAXEL_BUILD_BENCHMARKS=OFF \
  -DJAXEL_BUILD_TOOLS=ON --no-warn-unused-cli >/dev/null
cmake --build build -j"$(nproc)"

# The tools come with their own CMake option; the example runs without them.
find_tool() {
  find build/framework -type f -name "$1" -perm -u+x 2>/dev/null | head -n 1
}
JAXELCTL=$(find_tool jaxelctl)
JAXEL_SYNCD=$(find_tool jaxel-syncd)
export JAXELCTL JAXEL_SYNCD
examples/run-in-sandbox.sh ${keep:+--keep "$keep"} build/examples/jaxel_service_demo
if [ -n "$keep" ]; then
  look=${JAXELCTL:+"$JAXELCTL status"}
  echo "The sandbox is kept in $keep; look at it again with:"
  echo "  examples/run-in-sandbox.sh --keep $keep ${look:-sh}"
fi
