# MPEG-4 Part 2 with B-frames in MP4 and AVI: the decoder-specific info goes
# in ahead of the first frame (one converted unit), the later frames pass
# through unchanged, and the raw stream decodes to the original's frames.
source "$(dirname "$0")/lib.bash"

mpeg4=(-c:v mpeg4 -bf 2 -q:v 4 -g 12)
make_media mpeg4.mp4 "${mpeg4[@]}"
make_media mpeg4.avi "${mpeg4[@]}"
expect_b_frames mpeg4.avi

expect="packets == $E2E_FRAMES and converted == 1 and passed_through == packets - 1 and dropped == 0"
run_ring_cases mpeg4.mp4 mpeg4 "$expect" "mp4|" "mp4-small-ring|--ring-size 20k --wrap-at 20000"
run_ring_cases mpeg4.avi mpeg4 "$expect" "avi|" "avi-wrap-once|--wrap-at 8388600"
echo "ok: mpeg4"
