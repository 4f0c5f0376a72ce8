#!/usr/bin/env bash
# Benchmarks (Release build): converter pushes against a memcpy of the same
# output bytes. Extra arguments go to Google Benchmark.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/deps.sh
codecutil_install_deps
cmake -S . -B build/bench -G Ninja -DCMAKE_BUILD_TYPE=Release -DCODECUTIL_TESTS=OFF -DCODECUTIL_TOOLS=OFF -DCODECUTIL_BENCH=ON
cmake --build build/bench -j "$(nproc)"
build/bench/bin/converter_bench --benchmark_min_time=1 "$@"
