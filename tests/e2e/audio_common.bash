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

# convert_both_rings MEDIA CODEC: once into a large ring, once into a small
# ring that wraps early (inside the first push of the Vorbis headers) and
# many times after; the two outputs must be identical. Sets OUT (the first)
# and PACKETS.
convert_both_rings() {
    local first
    convert_audio "$1" "$2" plain
    first=$OUT
    convert_audio "$1" "$2" wrapped --ring-size 16k --wrap-at 16200
    cmp -s "$first" "$OUT" || fail "$1: output through a wrapping ring differs"
    OUT=$first
}

# inspect_extract FORMAT FILE DIR: walks FILE strictly as FORMAT and extracts
# it into DIR; the listing is kept in DIR.txt.
inspect_extract() {
    local format=$1 file=$2 dir=$3
    "$CODECUTIL" inspect "$file" --format "$format" --extract "$dir" >"$dir.txt" 2>"$dir.err" || {
        cat "$dir.err" >&2
        fail "codecutil inspect --format $format $file failed"
    }
}

# expect_line FILE PATTERN: FILE has a line matching the extended regex.
expect_line() {
    grep -Eq "$2" "$1" || fail "$1 has no line matching '$2'"
}

# expect_count FILE PATTERN N: exactly N lines of FILE match the regex.
expect_count() {
    local got
    got=$(grep -Ec "$2" "$1" || true)
    [[ $got -eq $3 ]] || fail "$1: $got lines match '$2', expected $3"
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
