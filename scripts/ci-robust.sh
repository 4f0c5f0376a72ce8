#!/usr/bin/env bash
# Robustness jobs beside the main suite: the fuzz corpora and regression
# inputs replayed under the ASan/UBSan gcc build, then each fuzz target run
# briefly with libFuzzer (clang).
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=$(nproc)

echo "== fuzz corpus replay (ASan + UBSan) =="
cmake -S . -B build/host -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCODECUTIL_SANITIZE=ON -DCODECUTIL_WERROR=ON \
    -DCODECUTIL_FUZZ=ON
cmake --build build/host -j "$jobs"
ctest --test-dir build/host -R '^fuzz_replay_' --output-on-failure

echo "== libFuzzer, a few seconds per target =="
scripts/fuzz.sh "${CI_FUZZ_SECONDS:-10}"
