# DivX 3.11 (msmpeg4v3) in AVI: every frame goes out behind one payload
# header; the frames extracted from the payload stream decode to exactly the
# original's frames, whether the ring wraps or not.
source "$(dirname "$0")/payload_common.bash"

make_media divx.avi -c:v msmpeg4v3 -g 10
convert_both_rings divx.avi divx311
inspect_extract corvid "$OUT" x
expect_line x.txt "^corvid: DivX 3.11, $E2E_FRAMES packets, $E2E_FRAMES frames$"
expect_line x.txt "^ +0  frame +L=[0-9]+ +codec=0x38  176x144  size=[0-9]+$"
same_frames divx.avi x/video.ivf

corrupt "$OUT" bad-marker.corvid 6 4F
expect_rejected corvid bad-marker.corvid "corvid: offset 0: marker bytes N/X/P missing"
corrupt "$OUT" cut.corvid -1
expect_rejected corvid cut.corvid "runs past the end"
echo "ok: payload divx"
