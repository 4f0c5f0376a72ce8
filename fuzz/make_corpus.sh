#!/usr/bin/env bash
# Seeds for the fuzz targets from real encoders (FFmpeg, x264, x265), laid
# out as each target reads its input, in fuzz/corpus/<target>/.
set -euo pipefail
cd "$(dirname "$0")/.."
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
python3 - "$tmp" <<'PY'
import json, os, re, struct, subprocess, sys
tmp = sys.argv[1]
def run(*args):
    subprocess.run([str(a) for a in args], check=True, stderr=subprocess.DEVNULL)
def save(target, name, body):
    os.makedirs(f"fuzz/corpus/{target}", exist_ok=True)
    open(f"fuzz/corpus/{target}/{name}", "wb").write(body)
def probe(path, what):
    return json.loads(subprocess.check_output(["ffprobe", "-v", "error", "-show_streams", what, "-show_data",
                                               "-of", "json", path]))
def hexdump(s):
    return bytes.fromhex("".join("".join(l.split(":", 1)[1][:41].split()) for l in s.strip().splitlines()))
ffmpeg = ["ffmpeg", "-v", "error", "-y"]

# Splitter: the first 6 KiB of the x264/x265 samples as Annex B streams
# behind the 4-byte header (flags, no record, failing call, chunk size - 1).
es = {}
for c, sample in (("h264", "samples/h264_x264_bframes.mp4"), ("hevc", "samples/h265_x265_bframes.mkv")):
    run(*ffmpeg, "-i", sample, "-c", "copy", "-bsf:v", f"{c}_mp4toannexb", "-f", c, f"{tmp}/{c}.es")
    es[c] = open(f"{tmp}/{c}.es", "rb").read()[:6144]
for name, c, head in (("avc_chunk256", "h264", b"\0\0\0\xff"), ("avc_chunk188", "h264", b"\0\0\0\xbb"),
                      ("hevc_chunk256", "hevc", b"\1\0\0\xff"), ("hevc_no_el_fail3", "hevc", b"\5\0\3\xbb")):
    save("splitter", name, head + es[c])

# Converter: per codec a short clip, its codec data and first packets laid
# out as the target reads them (type, get-buffer switch, parameter record,
# then pushes), once into contiguous space, once wrapped, once through the
# HAL ring. Clip, encoder, type (CodecUtilType_e; 11 is VP9), and whether
# width and height lead the record.
video = "-f lavfi -i testsrc=size=96x64:rate=10 -frames:v 4".split()
audio = "-f lavfi -i sine=frequency=440:sample_rate=48000 -t 0.1".split()
clips = [("h264.mp4", "-c:v libx264 -preset ultrafast -bf 2", 2, False),
         ("h265.mp4", "-c:v libx265 -preset ultrafast -x265-params log-level=none", 10, False),
         ("mpeg4.mp4", "-c:v mpeg4 -bf 1", 1, False), ("divx.avi", "-c:v msmpeg4", 0, True),
         ("spark.flv", "-c:v flv", 4, True), ("vp8.webm", "-c:v libvpx", 6, True),
         ("vp9.webm", "-c:v libvpx-vp9", 11, True), ("aac.mp4", "-c:a aac", 7, False),
         ("vorbis.webm", "-c:a libvorbis", 8, False), ("opus.webm", "-c:a libopus", 9, False)]
def converter_seeds(stem, ctype, rec, pushes):
    for tag, getbuf, grant, wrap in (("ring", 1, 0, 0), ("wrap", 1, 1, 0x80), ("hal", 0, 1, 0x10)):
        body = bytes([ctype, getbuf]) + rec
        for op, data in pushes:
            body += bytes([op]) + struct.pack("<H", len(data)) + data + bytes([grant, wrap])
        save("converter", f"{stem}_{tag}", body)
frames = {}
for name, options, ctype, dims in clips:
    run(*ffmpeg, *(video if options.startswith("-c:v") else audio), *options.split(), f"{tmp}/{name}")
    info = probe(f"{tmp}/{name}", "-show_packets")
    st = info["streams"][0]
    extra = hexdump(st.get("extradata", ""))
    rec = b"\x80" + (struct.pack("<hh", st.get("width", 0), st.get("height", 0)) if dims else b"")
    rec += struct.pack("<H", len(extra)) + extra + (struct.pack("<h", 10) if ctype == 11 else b"")
    pushes = [(0x04 | (0x08 if p["flags"].startswith("K") else 0), hexdump(p["data"])[:8192])
              for p in info["packets"][:3]]
    converter_seeds(name.split(".")[0], ctype, rec, pushes)
    frames[ctype] = pushes
# FFmpeg encodes neither VP6 nor VC-1. Both converters put frames behind
# headers without looking into them, so VP8 frames stand in; VC-1 as "WMV3"
# with a simple-profile STRUCT_C (4 bytes) and 25 fps.
converter_seeds("vp6", 5, b"\0" + struct.pack("<hhB", 96, 64, 0), frames[6])
converter_seeds("vc1", 3, b"\0" + struct.pack("<hhB4shhh", 96, 64, 4, b"\x0e\x79\x1a\x01", 4, 800, 25), frames[6])

# Parsers: the SPS and SEI NAL units of x264/x265 streams with HRD timing
# (buffering period and picture timing SEI) and the AudioSpecificConfig of
# the AAC clip (the seeds bitbuf, io and mirror are written by hand).
# Splitter again: two encodes of one source with HRD timing SEI, interleaved
# by tools/mkdual with 4-byte lengths, the base layer's decoder configuration
# record as codec data.
run(*ffmpeg, *"-f lavfi -i testsrc=size=96x64:rate=25 -frames:v 6 -pix_fmt yuv420p -f yuv4mpegpipe".split(),
    f"{tmp}/src.y4m")
x264 = "x264 --quiet --nal-hrd vbr --vbv-maxrate 800 --pic-struct".split()
x265 = "x265 --log-level none --hrd --vbv-maxrate 800".split()
run(*x264, "--vbv-bufsize", 800, "--bframes", 2, "-o", f"{tmp}/hrd.264", f"{tmp}/src.y4m")
run(*x265, "--vbv-bufsize", 800, "--bframes", 2, "-o", f"{tmp}/hrd.265", f"{tmp}/src.y4m")
def parser_seed(path, hevc):
    body = bytes([hevc, 3])
    data = open(path, "rb").read()
    starts = [m.start() + 3 for m in re.finditer(b"\x00\x00\x01", data)] + [len(data) + 3]
    for s, e in zip(starts, starts[1:]):
        nal = data[s:e - 3].rstrip(b"\x00")
        kind = (nal[0] >> 1) & 0x3F if hevc else nal[0] & 0x1F
        if kind in ((33, 39) if hevc else (7, 6)):
            op = 0x02 if kind in (33, 7) else 0x03
            payload = nal[2 if hevc else 1:][:2047]
            body += bytes([op]) + struct.pack("<H", len(payload)) + payload
    return body
save("parsers", "avc_hrd", parser_seed(f"{tmp}/hrd.264", 0))
save("parsers", "hevc_hrd", parser_seed(f"{tmp}/hrd.265", 1))
asc = hexdump(probe(f"{tmp}/aac.mp4", "-show_format")["streams"][0]["extradata"])
save("parsers", "aac_asc", bytes([3, 4]) + struct.pack("<H", 371) + b"\0" + asc)
for hevc, enc in ((0, x264 + ["--no-scenecut", "--aud"]), (1, x265 + ["--no-scenecut", "--aud"])):
    for q in (20, 30):
        run(*enc, "--vbv-bufsize", 1600, "--keyint", 5, "--min-keyint", 5, "--qp", q, "-o", f"{tmp}/{q}.es",
            f"{tmp}/src.y4m")
    run("python3", "tools/mkdual/mkdual.py", "--codec", ("avc", "hevc")[hevc], f"{tmp}/20.es", f"{tmp}/30.es",
        "-o", f"{tmp}/dual", "--length-size", 4, "--codec-data", f"{tmp}/rec")
    rec = open(f"{tmp}/rec", "rb").read()
    assert len(rec) < 256
    save("splitter", ("dual_avc", "dual_hevc")[hevc],
         bytes([hevc, len(rec), 0, 0xFF]) + rec + open(f"{tmp}/dual", "rb").read()[:16384])
PY
