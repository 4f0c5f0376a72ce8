# VP9 in WebM: an IVF stream (file header once, a frame header per frame with
# the time stamp in 90 kHz ticks); its frames decode to the original's.
# FFmpeg refuses the decoder's IVF variant itself (time scale 0, big-endian
# picture size), so the strictly walked frames are decoded from the plain IVF
# `inspect --extract` writes.
source "$(dirname "$0")/payload_common.bash"

make_media vp9.webm -c:v libvpx-vp9 -deadline realtime -cpu-used 8 -g 10
convert_both_rings vp9.webm vp9
inspect_extract ivf "$OUT" x
expect_line x.txt "^ +0  header  VP90 176x144 rate=25 scale=0 frames=0$"
expect_line x.txt "^ +[0-9]+  frame 1 +size=[0-9]+ +pts=3600$"  # 40 ms at 25 frames/s
expect_line x.txt "^ivf: VP90 176x144, $E2E_FRAMES frames$"
same_frames vp9.webm x/video.ivf

corrupt "$OUT" bad-size.ivf 6 10
expect_rejected ivf bad-size.ivf "ivf: offset 6: header size 16, expected 32"
corrupt "$OUT" cut.ivf -1
expect_rejected ivf cut.ivf "runs past the end"
echo "ok: payload vp9"
