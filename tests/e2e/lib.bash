# Shared helpers of the end-to-end tests; sourced, not run.
# Environment: CODECUTIL (the tool), SOURCE_DIR (repository root), WORKDIR
# (this test's own empty folder, also the current directory).
set -euo pipefail

E2E_DIR=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)

fail() {
    echo "FAIL: $*" >&2
    exit 1
}

for var in CODECUTIL SOURCE_DIR WORKDIR; do
    [[ -n ${!var:-} ]] || fail "$var is not set (run the tests through ctest)"
done
[[ -x $CODECUTIL ]] || fail "codecutil not found at $CODECUTIL"
mkdir -p "$WORKDIR"
cd "$WORKDIR"

# Synthetic picture source: small and short, so the suite stays quick.
E2E_SIZE=176x144
E2E_FRAMES=30

# make_media OUT [ffmpeg output options...]
# Encodes E2E_FRAMES frames of a moving test pattern into OUT.
make_media() {
    local out=$1
    shift
    ffmpeg -nostdin -hide_banner -loglevel error -y \
        -f lavfi -i "testsrc2=size=$E2E_SIZE:rate=25" -frames:v "$E2E_FRAMES" \
        -pix_fmt yuv420p "$@" "$out" || fail "ffmpeg could not make $out"
}

# make_media_with_audio OUT [ffmpeg output options...]
# As make_media, with a sine tone as a second stream.
make_media_with_audio() {
    local out=$1
    shift
    ffmpeg -nostdin -hide_banner -loglevel error -y \
        -f lavfi -i "testsrc2=size=$E2E_SIZE:rate=25" \
        -f lavfi -i "sine=frequency=440:sample_rate=48000" \
        -frames:v "$E2E_FRAMES" -t 1.2 -pix_fmt yuv420p "$@" "$out" ||
        fail "ffmpeg could not make $out"
}

# frame_hashes FILE [DEMUXER]
# One MD5 per decoded frame of FILE's first video stream, in output order;
# only the hash column of framemd5, so container timing does not matter.
frame_hashes() {
    local file=$1 demuxer=${2:-}
    local -a fmt=()
    [[ -n $demuxer ]] && fmt=(-f "$demuxer")
    ffmpeg -nostdin -hide_banner -loglevel error "${fmt[@]}" -i "$file" -map 0:v:0 \
        -fps_mode passthrough -f framemd5 - | awk -F', *' '!/^#/ { print $NF }' ||
        fail "ffmpeg could not decode $file"
}

# raw_demuxer EXT: the FFmpeg demuxer of a converted elementary stream.
raw_demuxer() {
    case $1 in
        h264) echo h264 ;;
        h265) echo hevc ;;
        m4v) echo m4v ;;
        *) fail "no raw demuxer known for .$1" ;;
    esac
}

# compare_frames ORIGINAL CONVERTED [EXPECTED_FRAME_COUNT]
# Decoding CONVERTED (a raw elementary stream) gives exactly the frames that
# decoding ORIGINAL's video stream gives.
compare_frames() {
    local original=$1 converted=$2 expected=${3:-}
    local ext=${converted##*.}
    frame_hashes "$original" >"$WORKDIR/expected.md5"
    frame_hashes "$converted" "$(raw_demuxer "$ext")" >"$WORKDIR/actual.md5"
    local want got
    want=$(wc -l <"$WORKDIR/expected.md5")
    got=$(wc -l <"$WORKDIR/actual.md5")
    [[ $want -gt 0 ]] || fail "$original decodes to no frame"
    if [[ -n $expected && $want -ne $expected ]]; then
        fail "$original decodes to $want frames, expected $expected"
    fi
    if ! cmp -s "$WORKDIR/expected.md5" "$WORKDIR/actual.md5"; then
        local first
        first=$(paste -d' ' "$WORKDIR/expected.md5" "$WORKDIR/actual.md5" |
            awk '$1 != $2 { print NR - 1; exit }')
        fail "$converted: $got frames decoded, $want expected; first different frame: ${first:-none (count differs)}"
    fi
}

# convert_json REPORT INPUT [convert options...]
# Runs `codecutil convert --json` and keeps its stdout in REPORT; fails with
# the tool's stderr when it exits non-zero.
convert_json() {
    local report=$1 input=$2
    shift 2
    if ! "$CODECUTIL" convert "$input" --json "$@" >"$report" 2>"$WORKDIR/convert.err"; then
        cat "$WORKDIR/convert.err" >&2
        fail "codecutil convert $input $* exited non-zero"
    fi
}

# check_report REPORT [check_report.py options...]
# Schema and count consistency of a JSON report, plus the given expectations.
check_report() {
    python3 "$E2E_DIR/check_report.py" "$@" || fail "report $1 does not hold"
}

# report_output REPORT INDEX: the output file of stream INDEX.
report_output() {
    python3 - "$1" "$2" <<'PY'
import json, sys
report = json.load(open(sys.argv[1]))
for s in report["streams"]:
    if s["index"] == int(sys.argv[2]):
        print(s["output"])
        break
else:
    sys.exit("stream %s not in the report" % sys.argv[2])
PY
}

# expect_exit CODE OUTFILE ERRFILE command...
# Runs the command with stdout and stderr in the given files and checks its
# exit status (CODE "nonzero" accepts any failure).
expect_exit() {
    local want=$1 out=$2 err=$3
    shift 3
    local status=0
    "$@" >"$out" 2>"$err" || status=$?
    if [[ $want == nonzero ]]; then
        [[ $status -ne 0 ]] || fail "$* exited 0, expected a failure"
    elif [[ $status -ne $want ]]; then
        cat "$err" >&2
        fail "$* exited $status, expected $want"
    fi
}

# expect_b_frames FILE: FILE's video stream really has B-pictures (so the
# conversion is tested with reordered frames).
expect_b_frames() {
    local types
    types=$(ffprobe -v error -select_streams v:0 -show_entries frame=pict_type -of csv=p=0 "$1")
    [[ $types == *B* ]] || fail "$1 has no B-frames; the test media are not what they should be"
}

# run_ring_cases MEDIA EXT EXPECT CASE...
# Converts MEDIA once per CASE ("name|convert options") into WORKDIR/name and
# checks the report against EXPECT (an expression over stream 0's fields),
# the decoded frames against MEDIA's, and that every ring layout yields the
# same bytes as the first case.
run_ring_cases() {
    local media=$1 codec=$2 expect=$3
    shift 3
    local first="" c name opts out
    for c in "$@"; do
        name=${c%%|*}
        opts=${c#*|}
        # shellcheck disable=SC2086 # opts is a list of options
        convert_json "$name.json" "$media" -o "$name" $opts
        check_report "$name.json" --input "$media" --expect "0:$codec:$expect"
        out=$(report_output "$name.json" 0)
        compare_frames "$media" "$out" "$E2E_FRAMES"
        if [[ -z $first ]]; then
            first=$out
        else
            cmp -s "$first" "$out" || fail "$media: output with '$opts' differs from $first"
        fi
    done
}

# both_rings CONVERT MEDIA CODEC WRAP_AT: runs "CONVERT MEDIA CODEC NAME
# [options]" once into a large ring and once into a 16 KiB ring whose write
# position starts at WRAP_AT, so it wraps early and many times after; the two
# outputs must be identical. Sets OUT to the first.
both_rings() {
    local convert=$1 media=$2 codec=$3 wrap_at=$4 first
    "$convert" "$media" "$codec" plain
    first=$OUT
    "$convert" "$media" "$codec" wrapped --ring-size 16k --wrap-at "$wrap_at"
    cmp -s "$first" "$OUT" || fail "$media: output through a wrapping ring differs"
    OUT=$first
}

# inspect_extract FORMAT FILE DIR: walks FILE strictly as FORMAT and extracts
# it into DIR; the listing is kept in DIR.txt.
inspect_extract() {
    local format=$1 file=$2 dir=$3
    "$CODECUTIL" inspect "$file" --format "$format" --extract "$dir" >"$dir.txt" 2>"$dir.err" || {
        cat "$dir.err" >&2
        fail "codecutil inspect --format $format $file failed"
    }
}

# expect_line FILE PATTERN: FILE has a line matching the extended regex.
expect_line() {
    grep -Eq "$2" "$1" || fail "$1 has no line matching '$2'"
}

# expect_count FILE PATTERN N: exactly N lines of FILE match the regex.
expect_count() {
    local got
    got=$(grep -Ec "$2" "$1" || true)
    [[ $got -eq $3 ]] || fail "$1: $got lines match '$2', expected $3"
}
