# Command-line behaviour of `codecutil convert` and `codecutil inspect`:
# unreadable inputs fail with one line on stderr, inputs with nothing to
# convert succeed with a note, the JSON report is consistent, and usage
# errors exit 2.
source "$(dirname "$0")/lib.bash"

# --- inputs that cannot be converted: exit 2 for a path that cannot be read,
# 1 for one libavformat cannot read; nothing on stdout, one line on stderr
# naming the input.
printf 'This is not a media file.\nIt has two lines of text.\n' >notes
: >empty.bin
mkdir -p folder.mp4
for row in 2:missing.mp4 1:notes 1:empty.bin 2:folder.mp4; do
    input=${row#*:}
    expect_exit "${row%%:*}" out.txt err.txt "$CODECUTIL" convert "$input" --json
    [[ ! -s out.txt ]] || fail "$input: stdout should be empty, got: $(cat out.txt)"
    [[ $(wc -l <err.txt) -eq 1 ]] || fail "$input: expected one stderr line, got: $(cat err.txt)"
    grep -qF "$input" err.txt || fail "$input: the error does not name the input: $(cat err.txt)"
done

# --- audio only. PCM never has a converter: exit 0, no stream listed, a
# note on stderr. AAC may have one (then it is listed and consistent) or not.
ffmpeg -nostdin -hide_banner -loglevel error -y -f lavfi -i sine=duration=0.5 -c:a pcm_s16le tone.wav
ffmpeg -nostdin -hide_banner -loglevel error -y -f lavfi -i sine=duration=0.5 -c:a aac tone.m4a
expect_exit 0 wav.json err.txt "$CODECUTIL" convert tone.wav --json -o wav
check_report wav.json --input tone.wav --streams 0
grep -q "no stream to convert" err.txt || fail "tone.wav: no note on stderr: $(cat err.txt)"
[[ ! -e wav ]] || fail "tone.wav: an output folder was made for nothing"
expect_exit 0 m4a.json err.txt "$CODECUTIL" convert tone.m4a --json -o m4a
check_report m4a.json --input tone.m4a
if [[ $(python3 -c 'import json,sys; print(len(json.load(open(sys.argv[1]))["streams"]))' m4a.json) == 0 ]]; then
    grep -q "no stream to convert" err.txt || fail "tone.m4a: no note on stderr: $(cat err.txt)"
fi

# --- a video stream beside one that has no converter (MP3): only the video
# stream is listed; the counts add up; bytes_out is the output file's size;
# the default output folder is used without -o.
make_media_with_audio mixed.avi -c:v mpeg4 -bf 2 -c:a libmp3lame -b:a 64k
convert_json mixed.json mixed.avi
check_report mixed.json --input mixed.avi --streams 1 \
    --expect "0:mpeg4:output == 'codecutil-out/stream0.m4v' and bytes_out > 0"
bytes_in=$(python3 -c 'import json,sys; print(json.load(open(sys.argv[1]))["streams"][0]["bytes_in"])' mixed.json)
video_bytes=$(ffprobe -v error -select_streams v:0 -show_entries packet=size -of csv=p=0 mixed.avi |
    awk '{ n += $1 } END { print n }')
[[ $bytes_in -eq $video_bytes ]] || fail "bytes_in $bytes_in, the video packets hold $video_bytes"

# A name that JSON must escape comes back as given.
odd=$'odd "name"\\ with\ttab.avi'
cp mixed.avi "$odd"
convert_json odd.json "$odd" -o odd
check_report odd.json --input "$odd" --streams 1

# Human summary: the converted stream with its output, the skipped one by codec.
expect_exit 0 summary.txt err.txt "$CODECUTIL" convert mixed.avi -o human
grep -q "stream 0 .*mpeg4.*human/stream0.m4v" summary.txt || fail "summary: $(cat summary.txt)"
grep -q "stream 1 .*mp3.*skipped" summary.txt || fail "summary: $(cat summary.txt)"
cmp -s human/stream0.m4v codecutil-out/stream0.m4v || fail "-o changed the bytes written"

# --- usage errors: exit 2 with a message.
usage_cases=(
    "convert mixed.avi --bogus"
    "convert mixed.avi other.avi"
    "convert mixed.avi --ring-size 0"
    "convert mixed.avi --ring-size lots"
    "convert mixed.avi --ring-size 4k --wrap-at 4096"
    "convert mixed.avi -o"
    "inspect"
    "frobnicate"
)
for args in "${usage_cases[@]}"; do
    # shellcheck disable=SC2086 # args is a word list
    expect_exit 2 out.txt err.txt "$CODECUTIL" $args
    [[ -s err.txt ]] || fail "codecutil $args: no message"
done
expect_exit nonzero out.txt err.txt "$CODECUTIL" inspect notes --format no-such-format
grep -q "unknown format 'no-such-format' (known: " err.txt || fail "inspect: $(cat err.txt)"
expect_exit 0 out.txt err.txt "$CODECUTIL" --help
grep -q "convert" out.txt || fail "--help does not list convert"
echo "ok: cli"
