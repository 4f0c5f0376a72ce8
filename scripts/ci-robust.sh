#!/usr/bin/env bash
# Robustness jobs beside the main suite: the fuzz corpora and regression
# inputs replayed and the allocation-failure sweep run under the ASan/UBSan
# gcc build, the thread test under ThreadSanitizer, then each fuzz target run
# briefly with libFuzzer (clang; CI_FUZZ_SECONDS per target, default 10).
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=$(nproc)

echo "== fuzz corpus replay and allocation-failure sweep (ASan + UBSan) =="
cmake -S . -B build/host -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCODECUTIL_SANITIZE=ON -DCODECUTIL_WERROR=ON \
    -DCODECUTIL_FUZZ=ON
cmake --build build/host -j "$jobs"
ctest --test-dir build/host -R '^(fuzz_replay_|robust_)' --output-on-failure

echo "== converters and splitters on many threads (ThreadSanitizer) =="
tsan="-fsanitize=thread -fno-omit-frame-pointer"
cmake -S . -B build/tsan -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCODECUTIL_WERROR=ON \
    -DCODECUTIL_TOOLS=OFF -DCODECUTIL_MEDIA_TESTS=OFF \
    -DCMAKE_C_FLAGS="$tsan" -DCMAKE_CXX_FLAGS="$tsan" -DCMAKE_EXE_LINKER_FLAGS=-fsanitize=thread \
    -DCMAKE_SHARED_LINKER_FLAGS=-fsanitize=thread
cmake --build build/tsan -j "$jobs" --target thread_test
TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1" \
    LD_LIBRARY_PATH=build/tsan/hal:build/tsan/lib build/tsan/bin/thread_test

echo "== libFuzzer, a few seconds per target =="
scripts/fuzz.sh "${CI_FUZZ_SECONDS:-10}"
