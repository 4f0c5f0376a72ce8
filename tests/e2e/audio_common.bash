# Shared steps of the audio converter tests (AAC, Vorbis, Opus); sourced, not
# run. Decoded samples are compared through audio_pcm_md5.c, built here with
# the system C compiler against the same libav* the tool uses.
source "$(dirname "${BASH_SOURCE[0]}")/lib.bash"

PCM_MD5=$WORKDIR/audio_pcm_md5
# shellcheck disable=SC2046 # pkg-config prints a list of flags
cc -std=c11 -O1 -Wall -Wextra -Werror -o "$PCM_MD5" "$E2E_DIR/audio_pcm_md5.c" \
    $(pkg-config --cflags --libs libavformat libavcodec libavutil) ||
    fail "cannot build audio_pcm_md5 (C compiler and libav*-dev needed)"

# Two seconds of a tone with pink noise over it, so the encoders have more
# than one sinusoid to code.
E2E_AUDIO_SECONDS=2

# make_audio OUT RATE CHANNELS [ffmpeg output options...]
make_audio() {
    local out=$1 rate=$2 channels=$3
    shift 3
    ffmpeg -nostdin -hide_banner -loglevel error -y \
        -f lavfi -i "sine=frequency=440:sample_rate=$rate:duration=$E2E_AUDIO_SECONDS" \
        -f lavfi -i "anoisesrc=duration=$E2E_AUDIO_SECONDS:color=pink:sample_rate=$rate:amplitude=0.1" \
        -filter_complex "[0][1]amerge=inputs=2" -ac "$channels" "$@" "$out" ||
        fail "ffmpeg could not make $out"
}

# convert_audio MEDIA CODEC NAME [convert options...]
# Converts MEDIA into WORKDIR/NAME; stream 0 must be taken by the CODEC
# binding and every one of its packets converted. Sets OUT to the output and
# PACKETS to the number of packets.
convert_audio() {
    local media=$1 codec=$2 name=$3
    shift 3
    convert_json "$name.json" "$media" -o "$name" "$@"
    check_report "$name.json" --input "$media" --streams 1 \
        --expect "0:$codec:packets > 0 and converted == packets and dropped == 0"
    OUT=$(report_output "$name.json" 0)
    PACKETS=$(python3 -c 'import json, sys; print(json.load(open(sys.argv[1]))["streams"][0]["packets"])' \
        "$name.json")
}





# same_pcm ORIGINAL [--extracted] DECODABLE: decoding DECODABLE (a file, or
# an extraction folder) gives exactly the samples, channels, rate and sample
# format that decoding ORIGINAL's audio stream gives, and at least
# MIN_SAMPLES samples (default: a second at 8 kHz).
same_pcm() {
    local original=$1
    shift
    local want got
    want=$("$PCM_MD5" "$original") || fail "cannot decode $original"
    got=$("$PCM_MD5" "$@") || fail "cannot decode $*"
    local samples
    samples=$(awk '{ print $4 }' <<<"$want")
    [[ $samples -ge ${MIN_SAMPLES:-8000} ]] || fail "$original decodes to only $samples samples"
    [[ $want == "$got" ]] || fail "decoding $* gives '$got', the original '$want'"
}

# convert_both_rings MEDIA CODEC: the wrapping ring wraps inside the first
# push of the Vorbis headers. Sets OUT and PACKETS.
convert_both_rings() { both_rings convert_audio "$1" "$2" 16200; }
