# H.264 from x264 with B-frames and four slices per picture, in MP4 with an
# audio track: the converted Annex-B stream decodes to the original's frames,
# whether ring space comes in one piece or wraps.
source "$(dirname "$0")/lib.bash"

make_media_with_audio h264.mp4 -c:v libx264 -preset veryfast -g 12 -bf 3 \
    -x264-params slices=4:bframes=3 -c:a aac -b:a 48k
expect_b_frames h264.mp4

run_ring_cases h264.mp4 h264 "converted == packets == $E2E_FRAMES and dropped == 0" \
    "contiguous|" \
    "wrap-once|--wrap-at 8388500" \
    "small-ring|--ring-size 16k --wrap-at 16300"

# Every picture arrived as its four slices, each behind a start code: count
# slice NAL units (types 1 and 5) in the converted stream.
slices=$(python3 - contiguous/stream0.h264 <<'PY'
import re, sys
data = open(sys.argv[1], "rb").read()
print(sum(1 for m in re.finditer(b"\x00\x00\x01(.)", data, re.S) if m.group(1)[0] & 0x1F in (1, 5)))
PY
)
[[ $slices -eq $((4 * E2E_FRAMES)) ]] || fail "expected $((4 * E2E_FRAMES)) slices, found $slices"
echo "ok: h264"
