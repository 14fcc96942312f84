#!/bin/sh
# Builds everything and runs the whole test suite; CTest's summary closes the run.
set -eu
cd "$(dirname "$0")/.."
cmake -S . -B build-tests -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build-tests -j"$(nproc)"
ctest --test-dir build-tests -j"$(nproc)" --output-on-failure --timeout 120
