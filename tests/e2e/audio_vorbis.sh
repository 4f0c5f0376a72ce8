# Vorbis in WebM (48 kHz stereo) and MKV (44.1 kHz mono): the three header
# packets from the codec data go once ahead of the first audio packet, only
# the very first packet carries b_o_s, and the extracted packets decode to the
# original's samples.
source "$(dirname "$0")/audio_common.bash"

check_vorbis() {
    local media=$1 rate=$2 channels=$3
    convert_both_rings "$media" vorbis
    inspect_extract packets "$OUT" x
    expect_line x.txt "^packet 0 offset 0 size 30 bos 1 eos 0 kind vorbis-identification channels $channels rate $rate$"
    expect_line x.txt "^packet 1 offset 74 size [0-9]+ bos 0 eos 0 kind vorbis-comment$"
    expect_line x.txt "^packet 2 offset [0-9]+ size [0-9]+ bos 0 eos 0 kind vorbis-setup$"
    expect_count x.txt "kind vorbis-" 3
    expect_count x.txt "^packet [0-9]+ offset [0-9]+ size [0-9]+ bos 0 eos 0 kind audio$" "$PACKETS"
    expect_line x.txt "^packets $((PACKETS + 3)) headers 3 audio $PACKETS bytes $(stat -c %s "$OUT") codec vorbis$"
    same_pcm "$media" --extracted x
    rm -rf x x.txt
}

make_audio stereo48.webm 48000 2 -c:a libvorbis -q:a 3
check_vorbis stereo48.webm 48000 2

make_audio mono44.mkv 44100 1 -c:a libvorbis -q:a 1
check_vorbis mono44.mkv 44100 1
echo "ok: audio vorbis"
