# Shared steps of the splitter's end-to-end tests; sourced, not run.
# Two encodes of one picture source (base and enhancement layer, aligned
# IDRs, HRD timing SEI) are interleaved by tools/mkdual into a dual-layer
# stream, which `codecutil split` must take apart again.
source "$(dirname "${BASH_SOURCE[0]}")/lib.bash"

MKDUAL="$SOURCE_DIR/tools/mkdual/mkdual.py"
SPLIT_FRAMES=30
SPLIT_FPS=25
FRAME_NS=$((1000000000 / SPLIT_FPS))

make_yuv() {
    [[ -e in.yuv ]] && return
    ffmpeg -nostdin -hide_banner -loglevel error -y -f lavfi -i "testsrc2=size=$E2E_SIZE:rate=$SPLIT_FPS" \
        -frames:v "$SPLIT_FRAMES" -pix_fmt yuv420p -f rawvideo in.yuv || fail "ffmpeg could not make in.yuv"
}

# encode_avc OUT MAXRATE BFRAMES: x264 with NAL HRD, picture timing and AUDs.
encode_avc() {
    make_yuv
    x264 --quiet --input-res "$E2E_SIZE" --fps "$SPLIT_FPS" --frames "$SPLIT_FRAMES" --bframes "$3" \
        --b-pyramid none --nal-hrd vbr --vbv-maxrate "$2" --vbv-bufsize $(($2 * 2)) --keyint 10 \
        --min-keyint 10 --no-scenecut --aud --pic-struct -o "$1" in.yuv 2>/dev/null || fail "x264 failed for $1"
}

# encode_hevc OUT MAXRATE BFRAMES: x265 with HRD, then an AUD in front of
# every access unit (x265 leaves it out of the first).
encode_hevc() {
    make_yuv
    x265 --log-level error --input in.yuv --input-res "$E2E_SIZE" --fps "$SPLIT_FPS" --frames "$SPLIT_FRAMES" \
        --bframes "$3" --hrd --vbv-maxrate "$2" --vbv-bufsize $(($2 * 2)) --keyint 10 --min-keyint 10 \
        --no-scenecut --aud -o "$1.noaud" 2>/dev/null || fail "x265 failed for $1"
    ffmpeg -nostdin -hide_banner -loglevel error -y -i "$1.noaud" -c copy -bsf:v hevc_metadata=aud=insert \
        -f hevc "$1" || fail "ffmpeg could not insert AUDs into $1"
}

# same_file A B: byte-identical.
same_file() {
    cmp -s "$1" "$2" || fail "$1 differs from $2"
}

# nal_payloads FILE: the NAL units of an Annex-B file, one hex line each,
# start codes dropped (3- and 4-byte codes compare equal).
nal_payloads() {
    python3 - "$1" <<'PY'
import os, sys
sys.path.insert(0, os.path.join(os.environ["SOURCE_DIR"], "tools", "mkdual"))
import mkdual
for _, nal in mkdual.nal_units(open(sys.argv[1], "rb").read()):
    print(nal.hex())
PY
}

# check_units CSV FRAMES ORDER: FRAMES deliveries of each layer; each EL
# access unit carries the time stamp of the BL access unit pushed with it
# (ORDER "same"), or the EL's times are a reordering of the BL's that is not
# monotonic (ORDER "reordered", for streams with B-pictures).
check_units() {
    python3 - "$@" <<'PY' || fail "$1: time stamps are not as expected"
import csv, sys
path, frames, order = sys.argv[1], int(sys.argv[2]), sys.argv[3]
rows = list(csv.DictReader(open(path)))
by = {t: [int(r["pts"]) for r in rows if r["type"] == t] for t in ("BL", "EL", "MD")}
for t, pts in by.items():
    if len(pts) != frames:
        sys.exit(f"{t}: {len(pts)} deliveries, expected {frames}")
bl, el = by["BL"], by["EL"]
if by["MD"] != bl:
    sys.exit(f"metadata times {by['MD'][:5]}... differ from the base layer's {bl[:5]}...")
if order == "same" and el != bl:
    sys.exit(f"EL {el[:6]}... != BL {bl[:6]}...")
if order == "reordered" and (sorted(el) != sorted(bl) or el == sorted(el)):
    sys.exit(f"EL {el[:8]}... is not a reordering of BL {bl[:8]}...")
PY
}

# run_split_cases CODEC EXT: the whole case list for one codec.
run_split_cases() {
    local codec=$1 ext=$2 encode=encode_$1
    $encode bl.$ext 300 0
    $encode el.$ext 600 0
    python3 "$MKDUAL" --codec "$codec" bl.$ext el.$ext -o dual.bin --csv dual.csv --fps "$SPLIT_FPS" >/dev/null ||
        fail "mkdual failed"

    # Transport-stream style: AUD-delimited access units, one push per access
    # unit with its time stamp. Both layers come back byte for byte.
    expect_exit 0 ts.json err.txt "$CODECUTIL" split dual.bin --codec "$codec" --ts --pts dual.csv -o ts --json
    python3 - ts.json "$SPLIT_FRAMES" "$ext" <<'PY' || fail "ts.json: $(cat ts.json)"
import json, sys
r = json.load(open(sys.argv[1]))
frames, ext = int(sys.argv[2]), sys.argv[3]
for name, out in (("BL", f"ts/bl.{ext}"), ("EL", f"ts/el.{ext}"), ("MD", "ts/md.bin")):
    layer = r["layers"][name]
    assert layer["units"] == frames and layer["output"] == out, (name, layer)
assert r["units_csv"] == "ts/units.csv"
PY
    same_file ts/bl.$ext bl.$ext
    same_file ts/el.$ext el.$ext
    check_units ts/units.csv "$SPLIT_FRAMES" same
    python3 - ts/md.bin "$SPLIT_FRAMES" <<'PY' || fail "ts/md.bin is not the metadata units"
import sys
want = b"".join(b"\x00\x00\x01\x19MD%d" % i for i in range(int(sys.argv[2])))
sys.exit(open(sys.argv[1], "rb").read() != want)
PY
    [[ $(ffprobe -v error -count_frames -show_entries stream=nb_read_frames -of csv=p=0 ts/el.$ext) == "$SPLIT_FRAMES" ]] ||
        fail "ts/el.$ext does not decode to $SPLIT_FRAMES pictures"

    # Straight from containers, codec detected: MPEG-TS PES payloads give the
    # layers of the raw split; MP4 hands the splitter a decoder configuration
    # record and length-prefixed units: its parameter sets, then the same layers. The
    # other codec's --codec is a mismatch: exit 3, no file left.
    local demuxer=hevc other=avc
    [[ $codec == avc ]] && demuxer=h264 other=hevc
    for c in ts mp4; do
        ffmpeg -nostdin -hide_banner -loglevel error -y -r "$SPLIT_FPS" -f "$demuxer" -i dual.bin \
            -c copy "dual.$c" || fail "ffmpeg could not mux dual.$c"
    done
    expect_exit 0 out.txt err.txt "$CODECUTIL" split dual.ts -o fromts
    same_file fromts/bl.$ext bl.$ext
    same_file fromts/el.$ext el.$ext
    same_file fromts/md.bin ts/md.bin
    expect_exit 0 out.txt err.txt "$CODECUTIL" split dual.mp4 -o frommp4
    python3 - "$codec" frommp4 . ts/md.bin "$ext" <<'PY' || fail "the split of dual.mp4 differs from the raw split"
import os, sys
sys.path.insert(0, os.path.join(os.environ["SOURCE_DIR"], "tools", "mkdual"))
import mkdual
codec, got_dir, want_dir, want_md, ext = sys.argv[1:]
# Start codes of either length: a unit ends before any zero byte of the next one's.
nals = lambda path: [n.rstrip(b"\0") for _, n in mkdual.nal_units(open(path, "rb").read())]
got, want = nals(f"{got_dir}/bl.{ext}"), nals(f"{want_dir}/bl.{ext}")
head = got[:len(got) - len(want)]
params = (32, 33, 34) if codec == "hevc" else (7, 8)
if not head or got[len(head):] != want or any(mkdual.nal_type(codec, n) not in params for n in head):
    sys.exit("base layer: not the record's parameter sets followed by the raw split's units")
if nals(f"{got_dir}/el.{ext}") != nals(f"{want_dir}/el.{ext}"):
    sys.exit("enhancement layer differs")
if nals(f"{got_dir}/md.bin") != nals(want_md):
    sys.exit("metadata differs")
PY
    expect_exit 3 out.txt err.txt "$CODECUTIL" split dual.mp4 --codec "$other" -o wrong
    [[ -z $(ls -A wrong 2>/dev/null) ]] || fail "a mismatched split left files: $(ls -A wrong)"

    # Without delimiters every unit is delivered by itself.
    expect_exit 0 out.txt err.txt "$CODECUTIL" split dual.bin --codec "$codec" --pts dual.csv -o units
    same_file units/bl.$ext bl.$ext
    same_file units/el.$ext el.$ext
    local nals
    nals=$(nal_payloads bl.$ext | wc -l)
    [[ $(grep -c '^BL,' units/units.csv) -eq $nals ]] || fail "units: expected $nals BL deliveries"

    # 64 KiB pieces with time stamp 0: the pieces cut units anywhere.
    expect_exit 0 out.txt err.txt "$CODECUTIL" split dual.bin --codec "$codec" --ts -o chunks
    same_file chunks/bl.$ext bl.$ext
    same_file chunks/el.$ext el.$ext

    # Length-prefixed units with a decoder configuration record: the record's
    # parameter sets go out first, then the stream's units behind start codes.
    python3 "$MKDUAL" --codec "$codec" bl.$ext el.$ext -o dual4.bin --csv dual4.csv --length-size 4 \
        --codec-data record.bin >/dev/null || fail "mkdual --length-size failed"
    expect_exit 0 out.txt err.txt "$CODECUTIL" split dual4.bin --codec "$codec" --ts --pts dual4.csv \
        --codec-data record.bin -o lp
    python3 - "$codec" lp/bl.$ext bl.$ext lp/el.$ext el.$ext lp/units.csv "$SPLIT_FRAMES" <<'PY' ||
import csv, os, sys
sys.path.insert(0, os.path.join(os.environ["SOURCE_DIR"], "tools", "mkdual"))
import mkdual
codec, got_bl, want_bl, got_el, want_el, units, frames = sys.argv[1:]
nals = lambda path: [n for _, n in mkdual.nal_units(open(path, "rb").read())]
first_au = mkdual.access_units(codec, open(want_bl, "rb").read())[0]
params = [n for t in ((32, 33, 34) if codec == "hevc" else (7, 8))
          for _, n in first_au if mkdual.nal_type(codec, n) == t]
if nals(got_bl) != params + nals(want_bl):
    sys.exit("base layer: not the record's parameter sets followed by the stream's units")
if nals(got_el) != nals(want_el):
    sys.exit("enhancement layer differs")
rows = list(csv.DictReader(open(units)))
bl = [int(r["pts"]) for r in rows if r["type"] == "BL"]
el = [int(r["pts"]) for r in rows if r["type"] == "EL"]
# The parameter sets stand before the first delimiter: one delivery of their own.
if len(bl) != int(frames) + 1 or bl[1:] != el:
    sys.exit(f"times: BL {bl[:4]}..., EL {el[:4]}...")
PY
        fail "length-prefixed input was not split as expected"

    # B-pictures: the enhancement layer's times come from its own picture
    # timing, in presentation order.
    $encode blb.$ext 300 2
    $encode elb.$ext 600 2
    python3 "$MKDUAL" --codec "$codec" blb.$ext elb.$ext -o dualb.bin --csv dualb.csv --fps "$SPLIT_FPS" \
        >/dev/null || fail "mkdual failed for the B-picture streams"
    expect_exit 0 out.txt err.txt "$CODECUTIL" split dualb.bin --codec "$codec" --ts --pts dualb.csv -o bframes
    same_file bframes/el.$ext elb.$ext
    check_units bframes/units.csv "$SPLIT_FRAMES" reordered
}
