#!/usr/bin/env bash
# Peak resident memory of `codecutil convert` and `codecutil split` on inputs
# of about 1 GiB (Release build), to show it does not grow with the input.
# Not a timed test: run by hand. BENCH_RSS_MIB sets the input size (default
# 1024); the media is made in build/rss/media and kept for reruns.
set -euo pipefail
cd "$(dirname "$0")/.."
target_mib=${BENCH_RSS_MIB:-1024}
cmake -S . -B build/rss -G Ninja -DCMAKE_BUILD_TYPE=Release -DCODECUTIL_TESTS=OFF >/dev/null
cmake --build build/rss -j2 --target codecutil >/dev/null
tool=$PWD/build/rss/bin/codecutil
media=build/rss/media
mkdir -p "$media"
cd "$media"

# A 720p piece near 64 MiB, repeated: concatenated Annex-B streams are one
# valid stream (each repeat starts with its parameter sets and an IDR).
if [[ ! -s big.h264 || $(($(stat -c %s big.h264) >> 20)) -lt $((target_mib * 9 / 10)) ]]; then
    ffmpeg -nostdin -hide_banner -loglevel error -y -f lavfi -i testsrc2=size=1280x720:rate=25 \
        -frames:v 250 -pix_fmt yuv420p -c:v libx264 -preset ultrafast -qp 4 piece.h264
    piece_mib=$(( ($(stat -c %s piece.h264) >> 20) + 1 ))
    : >big.h264
    for _ in $(seq $(( (target_mib + piece_mib - 1) / piece_mib ))); do cat piece.h264 >>big.h264; done
    rm -f big.mp4 big.ts
fi
for ext in mp4 ts; do
    [[ -s big.$ext ]] && continue
    ffmpeg -nostdin -hide_banner -loglevel error -y -r 25 -i big.h264 -c copy "big.tmp.$ext"
    mv "big.tmp.$ext" "big.$ext"
done

# peak_rss LABEL INPUT command...: prints the label, INPUT's size and the
# command's peak RSS.
peak_rss() {
    local label=$1 input=$2
    shift 2
    local kib
    kib=$(/usr/bin/time -f %M "$@" 2>&1 >/dev/null | tail -1)
    printf '%-28s input %5d MiB  peak RSS %6.1f MiB\n' "$label" \
        $(($(stat -c %s "$input") >> 20)) "$(echo "$kib / 1024" | bc -l)"
}

peak_rss "convert MP4 (avcC)" big.mp4 "$tool" convert big.mp4 -o out --allow-warnings
peak_rss "convert MPEG-TS (Annex-B)" big.ts "$tool" convert big.ts -o out --allow-warnings
peak_rss "split raw Annex-B" big.h264 "$tool" split big.h264 --codec avc -o split --allow-warnings
peak_rss "split MP4" big.mp4 "$tool" split big.mp4 -o split --allow-warnings
peak_rss "split MPEG-TS" big.ts "$tool" split big.ts -o split --allow-warnings
rm -rf out split
