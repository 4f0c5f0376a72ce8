#!/usr/bin/env bash
# Whole test suite: the formatting check, then the tests twice, natively
# with AddressSanitizer and UndefinedBehaviorSanitizer (including the
# real-media tests) and cross-built for 32-bit ARM (armhf) under qemu-user,
# then the robustness and shipping jobs. All must pass.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/deps.sh
codecutil_install_deps
jobs=$(nproc)

echo "== formatting (clang-format, .clang-format) =="
find Inc Src common vessplitter platform tools tests fuzz bench \( -name '*.cpp' -o -name '*.h' -o -name '*.c' \) -print0 |
    xargs -0 clang-format-14 --dry-run --Werror

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
