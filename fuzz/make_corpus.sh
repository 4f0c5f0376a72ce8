#!/usr/bin/env bash
# Seeds for the splitter target from the x264/x265 samples: the first 6 KiB
# of each Annex B stream behind the 4-byte schedule header (flags, record
# length 0, no failing call, chunk sizes 256 and 188).
set -euo pipefail
cd "$(dirname "$0")/.."
out=fuzz/corpus/splitter
mkdir -p "$out"
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
ffmpeg -v error -y -i samples/h264_x264_bframes.mp4 -c copy -bsf:v h264_mp4toannexb -f h264 "$tmp/avc.es"
ffmpeg -v error -y -i samples/h265_x265_bframes.mkv -c copy -bsf:v hevc_mp4toannexb -f hevc "$tmp/hevc.es"
seed() { { printf "$2"; head -c 6144 "$tmp/$1"; } > "$out/$3"; }
seed avc.es '\x00\x00\x00\xff' avc_chunk256
seed avc.es '\x00\x00\x00\xbb' avc_chunk188
seed hevc.es '\x01\x00\x00\xff' hevc_chunk256
seed hevc.es '\x05\x00\x03\xbb' hevc_no_el_fail3

# Seeds for the converter target: per codec a short clip from FFmpeg's
# encoders, its codec data and first packets laid out as the target reads
# them (type, get-buffer switch, parameter record, then pushes), once into
# contiguous space, once wrapped, once through the HAL ring.
out=fuzz/corpus/converter
mkdir -p "$out"
src="-f lavfi -i testsrc=size=96x64:rate=10 -frames:v 4"
aud="-f lavfi -i sine=frequency=440:sample_rate=48000 -t 0.1"
enc() { ffmpeg -v error -y $1 $2 "$tmp/$3"; }
enc "$src" "-c:v libx264 -preset ultrafast -bf 2" h264.mp4
enc "$src" "-c:v libx265 -preset ultrafast -x265-params log-level=none" h265.mp4
enc "$src" "-c:v mpeg4 -bf 1" mpeg4.mp4
enc "$src" "-c:v msmpeg4" divx.avi
enc "$src" "-c:v flv" spark.flv
enc "$src" "-c:v libvpx" vp8.webm
enc "$src" "-c:v libvpx-vp9" vp9.webm
enc "$aud" "-c:a aac" aac.mp4
enc "$aud" "-c:a libvorbis" vorbis.webm
enc "$aud" "-c:a libopus" opus.webm
python3 - "$tmp" "$out" <<'PY'
import json, struct, subprocess, sys
tmp, out = sys.argv[1:3]
# file, type (CodecUtilType_e; 11 is VP9), whether width and height lead the record
clips = [("h264.mp4", 2, False), ("h265.mp4", 10, False), ("mpeg4.mp4", 1, False),
         ("divx.avi", 0, True), ("spark.flv", 4, True), ("vp8.webm", 6, True),
         ("vp9.webm", 11, True), ("aac.mp4", 7, False), ("vorbis.webm", 8, False),
         ("opus.webm", 9, False)]
def write_seeds(stem, ctype, rec, pushes):
    for tag, getbuf, grant, wrap in (("ring", 1, 0, 0), ("wrap", 1, 1, 0x80), ("hal", 0, 1, 0x10)):
        body = bytes([ctype, getbuf]) + rec
        for op, data in pushes:
            body += bytes([op]) + struct.pack("<H", len(data)) + data + bytes([grant, wrap])
        with open(f"{out}/{stem}_{tag}", "wb") as f:
            f.write(body)
frames = {}
def hexdump(s):
    return bytes.fromhex("".join("".join(l.split(":", 1)[1][:41].split()) for l in s.strip().splitlines()))
for name, ctype, dims in clips:
    info = json.loads(subprocess.check_output(
        ["ffprobe", "-v", "error", "-show_streams", "-show_packets", "-show_data", "-of", "json",
         f"{tmp}/{name}"]))
    st = info["streams"][0]
    extra = hexdump(st.get("extradata", ""))
    rec = bytes([0x80])
    if dims:
        rec += struct.pack("<hh", st.get("width", 0), st.get("height", 0))
    rec += struct.pack("<H", len(extra)) + extra
    if ctype == 11:
        rec += struct.pack("<h", 10)
    pushes = []
    for p in info["packets"][:3]:
        data = hexdump(p["data"])[:8192]
        op = 0x04 | (0x08 if p["flags"].startswith("K") else 0)
        pushes.append((op, data))
    write_seeds(name.split(".")[0], ctype, rec, pushes)
    frames[ctype] = pushes
# FFmpeg encodes neither VP6 nor VC-1. Both converters put frames behind
# headers without looking into them, so VP8 frames stand in; VC-1 as "WMV3"
# with a simple-profile STRUCT_C (4 bytes) and 25 fps.
write_seeds("vp6", 5, bytes([0]) + struct.pack("<hhB", 96, 64, 0), frames[6])
struct_c = bytes([0x0e, 0x79, 0x1a, 0x01])
write_seeds("vc1", 3, bytes([0]) + struct.pack("<hhB", 96, 64, 4) + struct_c + struct.pack("<hhh", 4, 800, 25),
            frames[6])
PY

# Seeds for the parsers target: the SPS and SEI NAL units of x264/x265
# streams with HRD timing (buffering period and picture timing SEI), an
# AudioSpecificConfig, and short runs for the bit buffer, the I/O layer and
# the mirror buffer.
out=fuzz/corpus/parsers
mkdir -p "$out"
ffmpeg -v error -y -f lavfi -i testsrc=size=96x64:rate=25 -frames:v 6 -pix_fmt yuv420p -f yuv4mpegpipe "$tmp/src.y4m"
x264 --quiet --nal-hrd vbr --vbv-maxrate 800 --vbv-bufsize 800 --pic-struct --bframes 2 \
    -o "$tmp/hrd.264" "$tmp/src.y4m" 2>/dev/null
x265 --log-level none --hrd --vbv-maxrate 800 --vbv-bufsize 800 --bframes 2 \
    -o "$tmp/hrd.265" "$tmp/src.y4m" 2>/dev/null
python3 - "$tmp" "$out" <<'PY'
import json, re, struct, subprocess, sys
tmp, out = sys.argv[1:3]
def nals(path):
    data = open(path, "rb").read()
    starts = [m.start() for m in re.finditer(b"\x00\x00\x01", data)]
    for i, s in enumerate(starts):
        end = starts[i + 1] if i + 1 < len(starts) else len(data)
        yield data[s + 3:end].rstrip(b"\x00")
def parser_seed(path, selector, hevc):
    body = bytes([selector, 3])
    for nal in nals(path):
        kind = (nal[0] >> 1) & 0x3F if hevc else nal[0] & 0x1F
        if kind in ((33,) if hevc else (7,)):
            op = 0x02
        elif kind in ((39,) if hevc else (6,)):
            op = 0x03
        else:
            continue
        payload = nal[2 if hevc else 1:][:2047]
        body += bytes([op]) + struct.pack("<H", len(payload)) + payload
    return body
with open(f"{out}/avc_hrd", "wb") as f:
    f.write(parser_seed(f"{tmp}/hrd.264", 0, False))
with open(f"{out}/hevc_hrd", "wb") as f:
    f.write(parser_seed(f"{tmp}/hrd.265", 1, True))
info = json.loads(subprocess.check_output(
    ["ffprobe", "-v", "error", "-show_streams", "-show_data", "-of", "json", f"{tmp}/aac.mp4"]))
asc = bytes.fromhex("".join("".join(l.split(":", 1)[1][:41].split())
                            for l in info["streams"][0]["extradata"].strip().splitlines()))
with open(f"{out}/aac_asc", "wb") as f:
    f.write(bytes([3, 4]) + struct.pack("<H", 371) + bytes([0]) + asc)
seeds = {
    "bitbuf": bytes([2, 1, 3, 16]) + bytes(range(16)) + bytes([0, 7, 1, 12, 0, 0, 0, 9, 2, 0, 4, 5, 0, 3, 0, 5, 8]),
    "io": bytes([4, 0, 8, 2, 3, 1, 2, 3, 2, 9, 8, 7, 15]) + bytes(range(0x40, 0x50))
          + bytes([0, 5, 6, 0, 7, 0, 8, 12, 1, 9, 4, 10, 3, 1, 11, 3]),
    "mirror": bytes([5, 0x00, 0x10, 0, 0x00, 0x08]) + bytes(range(8)) + bytes([1, 4, 0, 2, 3, 0, 3, 0, 0x20, 1, 1, 0]),
}
for name, body in seeds.items():
    with open(f"{out}/{name}", "wb") as f:
        f.write(body)
PY

# Dual-layer seeds for the splitter target (and the scenarios of the
# allocation-failure sweep): two x264/x265 encodes with HRD timing SEI of one
# source, interleaved by tools/mkdual with 4-byte lengths and the base
# layer's decoder configuration record as codec data.
out=fuzz/corpus/splitter
for codec in avc hevc; do
    if [ $codec = avc ]; then
        for q in 20 30; do
            x264 --quiet --nal-hrd vbr --vbv-maxrate 800 --vbv-bufsize 1600 --pic-struct --keyint 5 \
                --min-keyint 5 --no-scenecut --aud --qp $q -o "$tmp/$codec$q.es" "$tmp/src.y4m" 2>/dev/null
        done
    else
        for q in 20 30; do
            x265 --log-level none --hrd --vbv-maxrate 800 --vbv-bufsize 1600 --keyint 5 --min-keyint 5 \
                --no-scenecut --aud --qp $q -o "$tmp/$codec$q.es" "$tmp/src.y4m" 2>/dev/null
        done
    fi
    python3 tools/mkdual/mkdual.py --codec $codec "$tmp/${codec}20.es" "$tmp/${codec}30.es" \
        -o "$tmp/$codec.dual" --length-size 4 --codec-data "$tmp/$codec.rec"
    python3 - "$tmp/$codec.rec" "$tmp/$codec.dual" "$out/dual_$codec" $([ $codec = hevc ] && echo 1 || echo 0) <<'PY'
import sys
rec, stream, out, hevc = open(sys.argv[1], "rb").read(), open(sys.argv[2], "rb").read(), sys.argv[3], int(sys.argv[4])
assert len(rec) < 256
with open(out, "wb") as f:
    f.write(bytes([hevc, len(rec), 0, 0xff]) + rec + stream[:16384])
PY
done
