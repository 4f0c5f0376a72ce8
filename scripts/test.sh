#!/usr/bin/env bash
# Whole test suite, twice: natively with AddressSanitizer and
# UndefinedBehaviorSanitizer (including the real-media tests), and
# cross-built for 32-bit ARM (armhf) under qemu-user. Both must pass.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/deps.sh
codecutil_install_deps
jobs=$(nproc)

echo "== native (x86-64, ASan + UBSan) =="
cmake -S . -B build/host -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCODECUTIL_SANITIZE=ON -DCODECUTIL_WERROR=ON
cmake --build build/host -j "$jobs"
ASAN_OPTIONS=detect_leaks=1 ctest --test-dir build/host -j "$jobs" --output-on-failure

echo "== armhf under qemu-arm =="
cmake -S . -B build/armhf -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCODECUTIL_WERROR=ON \
    -DCMAKE_TOOLCHAIN_FILE=cmake/armhf.cmake -DCODECUTIL_TOOLS=OFF -DCODECUTIL_MEDIA_TESTS=OFF
cmake --build build/armhf -j "$jobs"
ctest --test-dir build/armhf -j "$jobs" --output-on-failure
scripts/ci-robust.sh
scripts/ci-ship.sh
