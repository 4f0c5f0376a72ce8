# `codecutil convert` on the streams a player meets: H.264/H.265 without a
# decoder configuration record (MPEG-TS, AVI, raw) pass through unchanged and
# decode as the source does; a spliced FLV whose second half changes
# resolution decodes frame for frame like its own packets, so the new
# parameter sets reached the decoder; a ring too small for any unit is a
# problem (exit 3), not a success, as is a truncated file; neither leaves an
# output file behind, nor does an interrupted run.
source "$(dirname "$0")/lib.bash"

x265_quiet=(-x265-params log-level=error)
make_media avc.ts -c:v libx264
make_media avc.avi -c:v libx264
make_media avc.h264 -c:v libx264
make_media hevc.ts -c:v libx265 "${x265_quiet[@]}"
make_media hevc.h265 -c:v libx265 "${x265_quiet[@]}"

# The splice: two FLV files of different sizes, the second's file header cut,
# so the demuxer meets a second sequence header mid-stream.
make_media half1.flv -c:v libx264
E2E_SIZE=320x240 make_media half2.flv -c:v libx264 -output_ts_offset 1.2
{ cat half1.flv; tail -c +14 half2.flv; } >spliced.flv
# Cut inside the sample data: the demuxer marks the partial sample corrupt.
make_media whole.mp4 -c:v libx264 -movflags +faststart
head -c $(($(stat -c %s whole.mp4) / 2)) whole.mp4 >cut.mp4

# input  exit  options (- for none)  expectation on stream 0
while read -r input status options expect; do
    [[ $options == - ]] && options=
    out=out_${input//./_}_$status
    # shellcheck disable=SC2086
    expect_exit "$status" report.json err.txt "$CODECUTIL" convert "$input" --json -o "$out" $options
    failed=()
    [[ $status -ne 0 ]] && failed=(--failed)
    check_report report.json --input "$input" --streams 1 --expect "0:$expect" "${failed[@]}"
    if [[ $status -ne 0 ]]; then
        [[ -z $(ls -A "$out") ]] || fail "$input: a failed run left files: $(ls -A "$out")"
        continue
    fi
    output=$(report_output report.json 0)
    compare_frames "$input" "$output"
done <<'ROWS'
avc.ts      0 -             h264:passed_through == packets == 30 and bytes_out == bytes_in
avc.avi     0 -             h264:passed_through == packets == 30
avc.h264    0 -             h264:passed_through == packets == 30
hevc.ts     0 -             h265:passed_through == packets == 30
hevc.h265   0 -             h265:passed_through == packets == 30
spliced.flv 0 -             h264:converted == packets == 60 and param_changes == 1
cut.mp4     3 -             h264:0 < packets < 30
avc.ts      3 --ring-size=1 h264:dropped == packets and bytes_out == 0
ROWS
grep -q "all 30 units were dropped" err.txt || fail "dropped units not reported: $(cat err.txt)"
expect_exit 0 report.json err.txt "$CODECUTIL" convert avc.ts --json -o r1 --ring-size=1 --allow-warnings

# The same splice for AAC: the second half's sample rate reaches the decoder
# as a new ADTS configuration, which inspect lists as a change.
ffmpeg -nostdin -hide_banner -loglevel error -y -f lavfi -i sine=r=44100 -t 1 -c:a aac a1.flv
ffmpeg -nostdin -hide_banner -loglevel error -y -f lavfi -i sine=r=22050 -t 1 -c:a aac -output_ts_offset 1.2 a2.flv
{ cat a1.flv; tail -c +14 a2.flv; } >spliced_aac.flv
expect_exit 0 report.json err.txt "$CODECUTIL" convert spliced_aac.flv --json -o aac
check_report report.json --input spliced_aac.flv --streams 1 --expect "0:aac:converted == packets and param_changes == 1"
"$CODECUTIL" inspect aac/stream0.aac --format adts >adts.txt || fail "inspect refused the spliced ADTS"
[[ $(grep -c "^change offset" adts.txt) -eq 1 ]] || fail "the new configuration is not in the ADTS: $(grep -v ^frame adts.txt)"

# Interrupted mid-run: the input is a FIFO that stalls half-way, so the tool
# is surely inside the run with its output staged when SIGINT arrives.
mkfifo stall.ts
"$CODECUTIL" convert stall.ts -o stalled >/dev/null 2>&1 &
tool=$!
exec 3>stall.ts
head -c $(($(stat -c %s avc.ts) / 2)) avc.ts >&3
for _ in $(seq 100); do
    [[ -n $(ls -A stalled 2>/dev/null) ]] && break
    sleep 0.2
done
kill -INT "$tool"
status=0
wait "$tool" || status=$?
exec 3>&-
[[ $status -eq 130 ]] || fail "SIGINT: exit $status, expected 130"
[[ -z $(ls -A stalled) ]] || fail "SIGINT left files: $(ls -A stalled)"
echo "ok: inputs"
