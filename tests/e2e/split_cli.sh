# Command-line errors of `codecutil split`: usage errors and unreadable paths
# exit 2, bad input exits 1 with one line on stderr, a run without an
# enhancement layer exits 3 unless --allow-warnings.
source "$(dirname "$0")/lib.bash"

printf '\x00\x00\x00\x01\x09\xf0\x00\x00\x00\x01\x41\x9a' >tiny.bin
expect_exit 2 out.txt err.txt "$CODECUTIL" split tiny.bin
grep -q -- "--codec" err.txt || fail "missing --codec not reported: $(cat err.txt)"
expect_exit 2 out.txt err.txt "$CODECUTIL" split tiny.bin --codec vp9
expect_exit 2 out.txt err.txt "$CODECUTIL" split --codec avc
expect_exit 2 out.txt err.txt "$CODECUTIL" split tiny.bin --codec avc --bogus
expect_exit 0 out.txt err.txt "$CODECUTIL" split --help

mkdir -p folder
for args in "missing.bin" "folder" "tiny.bin --codec-data folder" "tiny.bin --pts folder" \
    "tiny.bin --pts missing.csv"; do
    # shellcheck disable=SC2086
    expect_exit 2 out.txt err.txt "$CODECUTIL" split $args --codec avc
    grep -q "cannot open .*'\(missing\|folder\)" err.txt || fail "$args: unclear error: $(cat err.txt)"
done
printf '4,5\n8,7\n' >late.csv
expect_exit 1 out.txt err.txt "$CODECUTIL" split tiny.bin --codec avc --pts late.csv
grep -q "late.csv:1: the first offset is 4" err.txt || fail "late start not reported: $(cat err.txt)"

printf 'offset,pts\n0,5\nx,7\n' >bad.csv
expect_exit 1 out.txt err.txt "$CODECUTIL" split tiny.bin --codec avc --pts bad.csv
grep -q "bad.csv:3" err.txt || fail "bad CSV row not located: $(cat err.txt)"
printf '0,5\n0,7\n' >backwards.csv
expect_exit 1 out.txt err.txt "$CODECUTIL" split tiny.bin --codec avc --pts backwards.csv
printf '0,5\n99,7\n' >outside.csv
expect_exit 1 out.txt err.txt "$CODECUTIL" split tiny.bin --codec avc --pts outside.csv

printf '\x01\x64\x00' >short.rec
expect_exit 1 out.txt err.txt "$CODECUTIL" split tiny.bin --codec avc --codec-data short.rec
grep -q "decoder configuration record" err.txt || fail "bad record not reported: $(cat err.txt)"

# A good run: two pushes with their time stamps (the second cuts the slice's
# start code, so the AUD ends inside the first), then the final push.
printf '0,100\n8,200\n' >ok.csv
expect_exit 3 out.json err.txt "$CODECUTIL" split tiny.bin --codec avc --pts ok.csv -o ok --json
grep -q "no enhancement-layer unit found (2 base-layer units" err.txt || fail "no EL not reported: $(cat err.txt)"
expect_exit 0 out.json err.txt "$CODECUTIL" split tiny.bin --codec avc --pts ok.csv -o ok --json --allow-warnings
python3 - out.json <<'PY' || fail "report: $(cat out.json)"
import json, sys
r = json.load(open(sys.argv[1]))
assert r["layers"]["BL"] == {"units": 2, "bytes": 12, "output": "ok/bl.h264"}, r
assert r["layers"]["EL"]["units"] == 0 and r["layers"]["MD"]["units"] == 0, r
PY
[[ $(cat ok/units.csv) == $'type,len,pts\nBL,6,100\nBL,6,200' ]] || fail "units.csv: $(cat ok/units.csv)"
echo "ok: split_cli"
