# H.265 from x265 with B-frames, in MP4 and in Matroska: the converted
# Annex-B stream decodes to the original's frames, with contiguous and
# wrapping ring space.
source "$(dirname "$0")/lib.bash"

x265=(-c:v libx265 -preset veryfast -g 12 -x265-params bframes=3:pools=1:frame-threads=1:log-level=error)
make_media h265.mp4 "${x265[@]}"
make_media h265.mkv "${x265[@]}"
expect_b_frames h265.mkv

expect="converted == packets == $E2E_FRAMES and dropped == 0"
run_ring_cases h265.mp4 h265 "$expect" "mp4|" "mp4-small-ring|--ring-size 12k --wrap-at 12200"
run_ring_cases h265.mkv h265 "$expect" "mkv|" "mkv-wrap-once|--wrap-at 8388000"
echo "ok: h265"
