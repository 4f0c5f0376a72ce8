# VC-1 main profile ("WMV3", no encoder in FFmpeg): random frames in AVI.
# The payload stream carries the RCV sequence layer once and a frame layer
# per frame; the extracted RCV file is read by FFmpeg's vc1test demuxer with
# the original frame count, sizes and key flags.
source "$(dirname "$0")/payload_common.bash"

make_synthetic_rcv synthetic.rcv 12
ffmpeg -nostdin -hide_banner -loglevel error -y -f vc1test -i synthetic.rcv -c copy vc1.avi 2>/dev/null
[[ -s vc1.avi ]] || fail "could not put the frames into AVI"
convert_both_rings vc1.avi vc1
inspect_extract corvid "$OUT" x
expect_line x.txt "^corvid: VC-1 simple/main, 13 packets, 12 frames \(3 key\)$"
expect_line x.txt "^ +0  config  L=48 +codec=0x11  176x144  rcv frames=12 struct_c=40010001 176x144 level=0 cbr=1 framerate=25$"
ffprobe -v error -f vc1test -show_entries packet=size,flags -of csv=p=0 x/video.rcv >got.packets
cmp -s got.packets synthetic.rcv.packets || fail "extracted frames differ in count, size or key flag"
[[ $(ffprobe -v error -f vc1test -show_entries stream=codec_name,width,height -of csv=p=0 x/video.rcv) == wmv3,176,144 ]] ||
    fail "extracted RCV file does not read as 176x144 WMV3"
corrupt "$OUT" bad-layer.corvid 71 FF  # first frame layer: key flag and reserved bits
expect_rejected corvid bad-layer.corvid "corvid: offset 71: frame layer reserved bits set"
echo "ok: payload vc1"
