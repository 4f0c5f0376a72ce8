# VP8 in WebM: a configuration packet (IVF file header) ahead of the first
# frame, and again where a key frame changes the picture size; the frames
# extracted as a plain IVF decode to the original's.
source "$(dirname "$0")/payload_common.bash"

vp8=(-c:v libvpx -deadline realtime -cpu-used 8 -g 10)
make_media vp8.webm "${vp8[@]}"
convert_both_rings vp8.webm vp8
inspect_extract corvid "$OUT" x
expect_line x.txt "^corvid: VP8, $((E2E_FRAMES + 1)) packets, $E2E_FRAMES frames \(3 key\)$"
expect_line x.txt "^ +0  config  L=44 +codec=0x36  176x144  ivf VP80 176x144 header-size=0$"
same_frames vp8.webm x/video.ivf

# Picture size 176x144, then 128x96 from a key frame on.
E2E_FRAMES=8 make_media first.webm "${vp8[@]}"
E2E_SIZE=128x96 E2E_FRAMES=8 make_media second.webm "${vp8[@]}"
printf "file '%s'\n" first.webm second.webm >parts.txt
ffmpeg -nostdin -hide_banner -loglevel error -y -f concat -safe 0 -i parts.txt -c copy resized.webm ||
    fail "could not join the two sizes"
convert_all resized.webm vp8 resized
inspect_extract corvid "$OUT" r
[[ $(grep -c '  config  ' r.txt) -eq 2 ]] || fail "expected two configuration packets in r.txt"
expect_line r.txt "  config  L=44 +codec=0x36  128x96  ivf VP80 128x96 header-size=0$"
expect_line r.txt "  frame   L=[0-9]+ +codec=0x36  128x96  size=[0-9]+ key=1 128x96$"
same_frames resized.webm r/video.ivf
echo "ok: payload vp8"
