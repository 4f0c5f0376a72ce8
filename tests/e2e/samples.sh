# The tool's main job: `codecutil convert` without arguments converts every
# bundled sample into codecutil-out/<sample>/, and each converted video
# stream decodes to the sample's own frames. The JSON form lists every
# sample, and writes the same bytes.
source "$(dirname "$0")/lib.bash"

expect_exit 0 summary.txt err.txt "$CODECUTIL" convert
expect_exit 0 all.json err.txt "$CODECUTIL" convert --json -o json-out

# Split {"inputs": [...]} into one report per sample; list the streams whose
# raw output FFmpeg can decode and compare.
python3 - all.json <<'PY' >streams.txt
import json, sys
doc = json.load(open(sys.argv[1]))
assert sorted(doc) == ["inputs"], doc
for i, report in enumerate(doc["inputs"]):
    name = "report%d.json" % i
    json.dump(report, open(name, "w"))
    for s in report["streams"]:
        video = s["codec"] in ("h264", "h265", "mpeg4")
        print(name, report["input"], s["index"], s["codec"], s["output"], int(video))
PY

reports=0
for report in report*.json; do
    check_report "$report"
    reports=$((reports + 1))
done

videos=0
while read -r -u 3 report input index codec output video; do
    [[ $video == 1 ]] || continue
    check_report "$report" --expect "$index:$codec:dropped == 0 and converted >= 1"
    compare_frames "$input" "$output"
    human=codecutil-out/$(basename "${input%.*}")/$(basename "$output")
    [[ -f $human ]] || fail "no $human from the plain run; summary: $(cat summary.txt)"
    cmp -s "$human" "$output" || fail "$human differs from the --json run's $output"
    grep -qF "$input" summary.txt || fail "summary does not name $input"
    videos=$((videos + 1))
done 3<streams.txt

# Every bundled media file was converted; the three video samples at least.
samples=$(find "$SOURCE_DIR/samples" -maxdepth 1 -type f ! -name '.*' \
    ! -name '*.sh' ! -name '*.md' ! -name '*.txt' | wc -l)
[[ $reports -eq $samples ]] || fail "$reports samples in the report, $samples bundled"
[[ $videos -ge 3 ]] || fail "only $videos H.264/H.265/MPEG-4 streams among the samples"
echo "ok: samples"
