#!/usr/bin/env bash
# Line coverage of the library (Src/, vessplitter/) by the fuzz corpora:
# builds the targets with clang's source-based coverage and the replay main
# in build/fuzz-cov, replays fuzz/corpus, fuzz/regression and what
# scripts/fuzz.sh has added in build/fuzz/corpus, and prints llvm-cov's
# report (per file and the total).
#   scripts/fuzz-coverage.sh [TARGET...]
set -euo pipefail
cd "$(dirname "$0")/.."
flags="-fprofile-instr-generate -fcoverage-mapping"
cmake -S . -B build/fuzz-cov -G Ninja -DCMAKE_BUILD_TYPE=Debug \
    -DCMAKE_C_COMPILER=clang-14 -DCMAKE_CXX_COMPILER=clang++-14 \
    -DCMAKE_C_FLAGS="$flags" -DCMAKE_CXX_FLAGS="$flags" \
    -DCODECUTIL_FUZZ=ON -DCODECUTIL_TESTS=OFF -DCODECUTIL_TOOLS=OFF -DCODECUTIL_WERROR=OFF >/dev/null
targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
    targets=($(sed -n 's/^set(FUZZ_TARGETS \(.*\))/\1/p' fuzz/CMakeLists.txt))
fi
cmake --build build/fuzz-cov -j 2 --target "${targets[@]/#/fuzz_}" >/dev/null
rm -f build/fuzz-cov/*.profraw
objects=()
for t in "${targets[@]}"; do
    dirs=(fuzz/regression/$t)
    for d in fuzz/corpus/$t build/fuzz/corpus/$t; do [ -d "$d" ] && dirs+=("$d"); done
    LLVM_PROFILE_FILE="build/fuzz-cov/$t.profraw" build/fuzz-cov/bin/fuzz_$t "${dirs[@]}" >/dev/null 2>&1
    objects+=(-object "build/fuzz-cov/bin/fuzz_$t")
done
llvm-profdata-14 merge -o build/fuzz-cov/all.profdata build/fuzz-cov/*.profraw
llvm-cov-14 report -instr-profile build/fuzz-cov/all.profdata "${objects[@]:1}" \
    "$PWD/Src" "$PWD/vessplitter"
