# VP6 (no encoder in FFmpeg): random frames in AVI (FLV would leave the
# picture size to the decoder, which random frames do not satisfy). The
# payload stream walks cleanly and the extracted IVF holds the same frames,
# byte counts in order.
source "$(dirname "$0")/payload_common.bash"

make_synthetic_ivf synthetic.ivf VP6F 12
ffmpeg -nostdin -hide_banner -loglevel error -y -i synthetic.ivf -c copy -copyinkf vp6.avi ||
    fail "could not put the frames into AVI"
convert_both_rings vp6.avi vp6
inspect_extract corvid "$OUT" x
expect_line x.txt "^corvid: VP6, 13 packets, 12 frames$"
expect_line x.txt "^ +0  config  L=12 +codec=0x36  176x144$"
ffprobe -v error -show_entries packet=size -of csv=p=0 x/video.ivf >got.sizes
cmp -s got.sizes synthetic.ivf.sizes || fail "extracted frame sizes differ from the synthetic ones"
echo "ok: payload vp6"
