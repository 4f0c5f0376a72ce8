# The tool's main job: `codecutil convert` without arguments converts every
# bundled sample into codecutil-out/<sample>/, and each converted video
# stream decodes to the sample's own frames. The JSON form lists every
# sample, and writes the same bytes.
source "$(dirname "$0")/lib.bash"

expect_exit 0 summary.txt err.txt "$CODECUTIL" convert
expect_exit 0 all.json err.txt "$CODECUTIL" convert --json -o json-out

# Split {"inputs": [...]} into one report per sample.
python3 - all.json <<'PY' >reports.txt
import json, sys
doc = json.load(open(sys.argv[1]))
assert sorted(doc) == ["inputs"], doc
for i, report in enumerate(doc["inputs"]):
    name = "report%d.json" % i
    json.dump(report, open(name, "w"))
    video = [s for s in report["streams"] if s["codec"] in ("h264", "h265", "mpeg4")]
    assert len(video) == 1, report
    print(name, report["input"], video[0]["index"], video[0]["codec"], video[0]["output"])
PY

count=0
while read -r -u 3 report input index codec output; do
    check_report "$report" --expect "$index:$codec:dropped == 0 and converted >= 1"
    compare_frames "$input" "$output"
    stem=$(basename "${input%.*}")
    human=codecutil-out/$stem/$(basename "$output")
    [[ -f $human ]] || fail "no $human from the plain run; summary: $(cat summary.txt)"
    cmp -s "$human" "$output" || fail "$human differs from the --json run's $output"
    grep -qF "$input" summary.txt || fail "summary does not name $input"
    count=$((count + 1))
done 3<reports.txt

samples=$(find "$SOURCE_DIR/samples" -maxdepth 1 -type f \( -name '*.mp4' -o -name '*.mkv' -o -name '*.avi' \) | wc -l)
[[ $count -ge 3 && $count -eq $samples ]] || fail "$count samples converted, $samples bundled"
echo "ok: samples"
