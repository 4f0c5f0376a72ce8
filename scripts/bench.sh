#!/usr/bin/env bash
# Benchmarks (Release build): converter pushes against a memcpy of the same
# output bytes; splitter pushes of a 1080p dual-layer stream in 188-byte,
# 64 KiB and access-unit pieces against FFmpeg's H.264 parser and a memcpy.
# Extra arguments go to both Google Benchmark binaries.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/deps.sh
codecutil_install_deps
cmake -S . -B build/bench -G Ninja -DCMAKE_BUILD_TYPE=Release -DCODECUTIL_TESTS=OFF -DCODECUTIL_TOOLS=OFF -DCODECUTIL_BENCH=ON
cmake --build build/bench -j "$(nproc)"
build/bench/bin/converter_bench --benchmark_min_time=1 "$@"
build/bench/bin/splitter_bench --benchmark_min_time=1 "$@"
