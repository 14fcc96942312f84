#!/bin/sh
# Builds libjaxel and runs the example service program in a private sandbox.
set -eu
cd "$(dirname "$0")/.."
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release -DJAXEL_BUILD_TESTS=OFF -DJAXEL_BUILD_BENCHMARKS=OFF >/dev/null
cmake --build build -j"$(nproc)"
examples/run-in-sandbox.sh build/examples/jaxel_service_demo
