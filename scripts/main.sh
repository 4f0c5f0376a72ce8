#!/usr/bin/env bash
# Main job: install what is missing, build, and convert the bundled samples
# with `codecutil convert` (outputs in build/release/codecutil-out).
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/deps.sh
codecutil_install_deps
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release -DCODECUTIL_TESTS=OFF
cmake --build build/release -j "$(nproc)"
build/release/bin/codecutil convert -o build/release/codecutil-out "$@"
