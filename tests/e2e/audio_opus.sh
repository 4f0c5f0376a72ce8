# Opus in WebM (stereo) and Ogg (mono): the OpusHead codec data goes once, as
# a packet of its own ahead of the first audio packet, no packet carries
# b_o_s, and the extracted packets decode to the original's samples.
source "$(dirname "$0")/audio_common.bash"

check_opus() {
    local media=$1 channels=$2
    convert_both_rings "$media" opus
    inspect_extract packets "$OUT" x
    expect_line x.txt "^packet 0 offset 0 size 19 bos 0 eos 0 kind opus-head version 1 channels $channels pre_skip [0-9]+ rate 48000$"
    expect_count x.txt "kind opus-head" 1
    expect_count x.txt "bos 1" 0
    expect_count x.txt "^packet [0-9]+ offset [0-9]+ size [0-9]+ bos 0 eos 0 kind audio$" "$PACKETS"
    expect_line x.txt "^packets $((PACKETS + 1)) headers 1 audio $PACKETS bytes $(stat -c %s "$OUT") codec opus$"
    same_pcm "$media" --extracted x
    rm -rf x x.txt
}

make_audio stereo.webm 48000 2 -c:a libopus -b:a 64k
check_opus stereo.webm 2

make_audio mono.ogg 48000 1 -c:a libopus -b:a 24k -frame_duration 40
check_opus mono.ogg 1
echo "ok: audio opus"
