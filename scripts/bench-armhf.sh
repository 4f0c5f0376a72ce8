#!/usr/bin/env bash
# Instruction counts on 32-bit ARM: cross-builds the library (Release) and
# bench/count_bench, runs each case under qemu-arm (Cortex-A7) and counts the
# guest instructions executed. qemu logs every translated block's
# instructions once (in_asm) and every executed block each time (exec, with
# nochain so none is skipped); the block sizes summed over executed blocks
# are the exact count. Each case runs with 1 and 3 repeats, the difference
# halved, so start-up and set-up cancel; that over four buffer alignments
# (glibc's memcpy takes different paths by relative alignment). Counts are
# deterministic: a loaded machine gives the same figures.
#
# Media (20 access units / frames each, made with ffmpeg on the host and
# demuxed by bench/count_media into plain unit files) go to
# CODECUTIL_BENCH_DIR (default /tmp/codecutil-count).
# FFmpeg's parser and bitstream filters are not counted: Debian has no
# armhf libavcodec to link against on this host.
set -euo pipefail
cd "$(dirname "$0")/.."
dir=${CODECUTIL_BENCH_DIR:-/tmp/codecutil-count}
aligns=${ALIGNS:-"0 1 4 9"}
mkdir -p "$dir"

g++ -O1 -std=c++20 bench/count_media.cpp -o "$dir/count_media" \
    $(pkg-config --cflags --libs libavformat libavcodec libavutil)

src="-f lavfi -i testsrc2=size=1920x1080:rate=25 -frames:v 20"
make() {  # make OUT ARGS...: encode once, then demux into OUT.units
    local out=$1; shift
    [ -s "$dir/$out.units" ] && return
    ffmpeg -v error -y "$@" "$dir/$out"
    "$dir/count_media" "$dir/$out" "$dir/$out.units"
}
make h264.mp4 $src -c:v libx264 -preset veryfast -bf 3 -b:v 8M
make h265.mkv $src -c:v libx265 -preset ultrafast -x265-params log-level=error -b:v 8M
make vp9.webm $src -c:v libvpx-vp9 -deadline realtime -cpu-used 8 -b:v 8M
make aac.m4a -f lavfi -i sine=frequency=440:sample_rate=48000 -t 0.45 -c:a aac -b:a 128k
if [ ! -s "$dir/split.units" ]; then
    for layer in bl:8M el:4M; do
        rate=${layer#*:}
        ffmpeg -v error -y $src -c:v libx264 -preset veryfast -bf 3 -g 25 -sc_threshold 0 \
            -b:v "$rate" -maxrate "$rate" -bufsize "$rate" -x264-params nal-hrd=vbr:pic-struct=1 \
            -f h264 "$dir/split_${layer%%:*}.h264"
    done
    "$dir/count_media" --dual "$dir/split_bl.h264" "$dir/split_el.h264" "$dir/split.units"
fi

build=build/armhf-count
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_TOOLCHAIN_FILE=cmake/armhf.cmake \
    -DCODECUTIL_TESTS=OFF -DCODECUTIL_TOOLS=OFF --no-warn-unused-cli >/dev/null
cmake --build "$build" -j 2 >/dev/null
lib=$(dirname "$(find "$build" -name 'libCodecUtil.so*' -type f | head -n1)")
arm-linux-gnueabihf-g++ -O3 -std=c++20 -IInc -Ivessplitter -Iplatform/zarnutil/include -Iplatform/halavstream/include bench/count_bench.cpp \
    -L"$lib" -Wl,-rpath,"$(realpath "$lib")" -lCodecUtil -o "$build/count_bench"

# Guest instructions of one run.
count() {
    qemu-arm -L /usr/arm-linux-gnueabihf -cpu cortex-a7 -d in_asm,exec,nochain -D /dev/stdout \
        "$build/count_bench" "$@" | awk '
        function key(a) { sub(/^0x/, "", a); sub(/^0+/, "", a); return a }
        /^IN:/ { inb = 1; pc = ""; n = 0; next }
        inb && /^0x[0-9a-f]+:/ { if (pc == "") pc = key(substr($1, 1, length($1) - 1)); n++; next }
        inb && (/^$/ || /^----/) { if (pc != "") size[pc] = n; inb = 0; next }
        /^Trace/ { split($4, f, "/"); total += size[key(f[2])] }
        END { printf "%d\n", total }'
}

# Instructions of one repeat of a case, summed over the alignments.
per_repeat() {
    local sum=0 a one three
    for a in $aligns; do
        one=$(count "$1" "$dir/$2" 1 "$a")
        three=$(count "$1" "$dir/$2" 3 "$a")
        sum=$((sum + (three - one) / 2))
    done
    echo "$sum"
}

n_aligns=$(wc -w <<<"$aligns")
printf '%-28s %14s %10s %12s %8s\n' case instr/unit instr/byte memcpy/unit ratio
row() {  # row NAME CASE UNITS [BASELINE_CASE]; CASES=regex picks rows
    [[ -n "${CASES:-}" && ! "$2" =~ $CASES ]] && return
    local units bytes mine base
    units=$(python3 -c "import sys,struct
d=open(sys.argv[1],'rb').read(); i=0; n=-1; b=0
while i<len(d):
    s=struct.unpack_from('<I',d,i)[0]; i+=4+s; n+=1; b+= s if n>0 else 0
print(n, b)" "$dir/$3")
    bytes=${units#* }; units=${units% *}
    mine=$(per_repeat "$2" "$3")
    base=$(per_repeat "${4:-memcpy/${2#*/}}" "$3")
    python3 -c "import sys
m,b,u,by,na=map(float,sys.argv[2:7])
print('%-28s %14.0f %10.3f %12.0f %8.2f' % (sys.argv[1], m/na/u, m/na/by, b/na/u, m/b))" \
        "$1" "$mine" "$base" "$units" "$bytes" "$n_aligns"
}
row "H.264 push" conv/h264 h264.mp4.units
row "H.265 push" conv/h265 h265.mkv.units
row "AAC frame -> ADTS" conv/aac aac.m4a.units
row "VP9 frame -> IVF" conv/vp9 vp9.webm.units
row "splitter, push per AU" conv/split-au split.units memcpy/split-au
row "splitter, 188-byte pushes" conv/split-188 split.units memcpy/split-au
