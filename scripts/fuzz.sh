#!/usr/bin/env bash
# Builds the fuzz targets with clang (libFuzzer, ASan, UBSan) and runs each
# for SECONDS (default 60) on one core over its corpus and regression inputs.
# A crash leaves its reproducer in build/fuzz/artifacts/: copy it into
# fuzz/regression/<target>/ so CTest replays it.
#   scripts/fuzz.sh [SECONDS] [TARGET...]
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
shift || true
flags="-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=undefined"
cmake -S . -B build/fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_C_COMPILER=clang-14 -DCMAKE_CXX_COMPILER=clang++-14 \
    -DCMAKE_C_FLAGS="$flags" -DCMAKE_CXX_FLAGS="$flags" \
    -DCODECUTIL_FUZZ=ON -DCODECUTIL_LIBFUZZER=ON -DCODECUTIL_TESTS=OFF -DCODECUTIL_TOOLS=OFF -DCODECUTIL_WERROR=OFF
targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
    targets=($(sed -n 's/^set(FUZZ_TARGETS \(.*\))/\1/p' fuzz/CMakeLists.txt))
fi
cmake --build build/fuzz -j 2 --target "${targets[@]/#/fuzz_}"
mkdir -p build/fuzz/artifacts
for t in "${targets[@]}"; do
    work=build/fuzz/corpus/$t
    mkdir -p "$work"
    seeds=(fuzz/regression/$t)
    [ -d fuzz/corpus/$t ] && seeds+=(fuzz/corpus/$t)
    echo "== $t: ${seconds}s =="
    # The library's own diagnostic lines run to millions: they go to the log,
    # the final statistics (or the crash) to the terminal.
    log=build/fuzz/$t.log
    if ! ASAN_OPTIONS=detect_leaks=1 build/fuzz/bin/fuzz_$t -max_total_time="$seconds" -print_final_stats=1 \
        -artifact_prefix=build/fuzz/artifacts/$t- "$work" "${seeds[@]}" >"$log" 2>&1; then
        tail -n 80 "$log"
        echo "fuzz_$t failed: full log in $log" >&2
        exit 1
    fi
    grep -E '^(Done|stat::)' "$log"
done
