# SPARK (flv1) in FLV: one empty configuration packet, then every frame
# behind a payload header; the extracted frames decode to the original's.
source "$(dirname "$0")/payload_common.bash"

make_media spark.flv -c:v flv1 -g 10
convert_both_rings spark.flv spark
inspect_extract corvid "$OUT" x
expect_line x.txt "^corvid: SPARK, $((E2E_FRAMES + 1)) packets, $E2E_FRAMES frames$"
expect_line x.txt "^ +0  config  L=12 +codec=0x39  176x144$"
same_frames spark.flv x/video.ivf
echo "ok: payload spark"
