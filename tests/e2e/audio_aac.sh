# AAC-LC in MP4/M4A (44.1 kHz stereo, 8 kHz mono): the ADTS output decodes
# to the original's samples directly, and so do the raw frames inspect
# extracts from it; a wrapping ring gives the same bytes.
source "$(dirname "$0")/audio_common.bash"

check_aac() {
    local media=$1 rate=$2 channels=$3 index=$4
    convert_both_rings "$media" aac
    [[ $OUT == *.aac ]] || fail "AAC output is not an .aac file: $OUT"
    same_pcm "$media" "$OUT"
    inspect_extract adts "$OUT" x
    expect_count x.txt "^frame [0-9]+ offset [0-9]+ size [0-9]+ payload [0-9]+ id 0 layer 0 protection_absent 1 profile 1 sf_index $index rate $rate channels $channels fullness 0x7cf blocks 1$" "$PACKETS"
    expect_line x.txt "^frames $PACKETS bytes $(stat -c %s "$OUT")$"
    same_pcm "$media" --extracted x
    rm -rf x x.txt
}

make_audio stereo44.m4a 44100 2 -c:a aac -b:a 96k
check_aac stereo44.m4a 44100 2 4

make_audio mono8.mp4 8000 1 -c:a aac -b:a 16k
check_aac mono8.mp4 8000 1 11

# ADTS input carries no AudioSpecificConfig, so nothing is converted: the
# frames pass through unchanged and the stream comes out as it went in.
convert_json again.json "$OUT" -o again
check_report again.json --expect "0:aac:passed_through == packets and converted == 0"
cmp -s "$OUT" "$(report_output again.json 0)" || fail "ADTS input did not pass through unchanged"
echo "ok: audio aac"
