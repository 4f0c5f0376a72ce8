#!/usr/bin/env python3
"""End-to-end tests of the codecutil tool on real encoder output.

    e2e.py convert GROUP | cli | samples | split avc|hevc

Runs in an empty working folder, with CODECUTIL (the tool) and SOURCE_DIR
(the repository root) in the environment. The cases are the rows of the .tsv
files beside this script; the inputs are made as media.tsv says.
"""
import csv
import glob
import json
import os
import random
import re
import shlex
import shutil
import signal
import struct
import subprocess
import sys
import time

TOOL, SOURCE_DIR = os.environ["CODECUTIL"], os.environ["SOURCE_DIR"]
HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(SOURCE_DIR, "tools", "mkdual"))
sys.dont_write_bytecode = True  # no __pycache__ in the source tree
import mkdual  # noqa: E402

FFMPEG = "ffmpeg -nostdin -hide_banner -loglevel error -y "
DEMUXER = {"h264": "h264", "h265": "hevc", "mpeg4": "m4v"}  # of a raw converter output
KEYS = ["index", "codec", "output", "packets", "converted", "passed_through", "dropped",
        "param_changes", "bytes_in", "bytes_out"]


def expect(ok, what):
    if not ok:
        sys.exit("FAIL: " + what)


def run(args, status=0):
    """Runs a command (a list, or a shell line) and checks its exit status."""
    r = subprocess.run(args, shell=isinstance(args, str), capture_output=True, text=True,
                       errors="replace")
    expect(r.returncode == status, f"{args}: exit {r.returncode}, expected {status}: {r.stderr}")
    return r


def rows(table, *keys):
    """The fields after KEYS of the rows of TABLE that start with KEYS ("-" is empty)."""
    for line in open(os.path.join(HERE, table)):
        fields = [f if f != "-" else "" for f in line.rstrip("\n").split("\t")]
        if not line.startswith("#") and line.strip() and fields[:len(keys)] == list(keys):
            yield fields[len(keys):]


def subst(text, env):
    """TEXT with each @EXPR@ replaced by the value of the expression over ENV."""
    return re.sub(r"@([^@]+)@", lambda m: str(eval(m.group(1), {}, env)), text)


def read(path):
    with open(path, "rb") as f:
        return f.read()


def write(path, data):
    with open(path, "wb") as f:
        f.write(data)
    return path


def make(name):
    """Makes the input NAME as media.tsv says (and the inputs it is made of), once."""
    if os.path.exists(name):
        return name
    recipe, options = next(rows("media.tsv", name))
    kind, *a = recipe.split(":")
    srcs = [make(s) for s in a] if kind in ("copy", "join", "half") else []
    if kind.startswith("video"):
        size, frames = a or ("176x144", 30)
        src = f"-f lavfi -i testsrc2=size={size}:rate=25"
        if kind == "video+audio":
            src += " -f lavfi -i sine=frequency=440:sample_rate=48000 -t 1.2"
        src += f" -frames:v {frames} -pix_fmt yuv420p"
    elif kind == "audio":  # a tone under pink noise: more than one sinusoid to code
        src = (f"-f lavfi -i sine=frequency=440:sample_rate={a[0]}:duration=2 -f lavfi -i "
               f"anoisesrc=duration=2:color=pink:sample_rate={a[0]}:amplitude=0.1 "
               f"-filter_complex amerge=inputs=2 -ac {a[1]}")
    elif kind == "copy":
        src = f"-i {srcs[0]} -c copy"
    elif kind == "join" and name.endswith(".flv"):
        # The second file header cut: the demuxer meets a new sequence header mid-stream.
        return write(name, read(srcs[0]) + read(srcs[1])[13:])
    elif kind == "join":
        parts = write(name + ".txt", "".join(f"file '{s}'\n" for s in srcs).encode())
        src = f"-f concat -safe 0 -i {parts} -c copy"
    elif kind == "half":  # cut inside the sample data: the demuxer marks the sample corrupt
        return write(name, read(srcs[0])[:os.path.getsize(srcs[0]) // 2])
    else:
        return random_frames(name, a[0])
    run(f"{FFMPEG}{src} {options} {name}")
    return name


def random_frames(name, fmt):
    """12 frames of 20..400 random bytes, every fifth a key frame, as a VC-1
    main profile RCV file (sequence layer, then frame layer + frame) or an IVF."""
    rng, n = random.Random(7), 12
    if fmt == "rcv":
        data = (struct.pack("<I", n)[:3] + b"\xc5" + struct.pack("<I", 4) + b"\x40\0\0\0" +
                struct.pack("<6I", 144, 176, 12, 0x50, 0, 25))
    else:
        data = b"DKIF" + struct.pack("<HH4sHHIII4x", 0, 32, b"VP6F", 176, 144, 25, 1, n)
    for i in range(n):
        size = rng.randint(20, 400)
        if fmt == "rcv":
            data += struct.pack("<II", size | (i % 5 == 0) << 31, 0) + rng.randbytes(size)
        else:
            data += struct.pack("<IQ", size, i) + rng.randbytes(size)
    return write(name, data)


def frame_md5(path, demuxer=""):
    """The MD5 of each decoded frame of PATH's first video stream, in output order."""
    fmt = f"-f {demuxer} " if demuxer else ""
    out = run(f"{FFMPEG}{fmt}-i {path} -map 0:v:0 -fps_mode passthrough -f framemd5 -").stdout
    return [line.split(",")[-1] for line in out.splitlines() if not line.startswith("#")]


def pcm_md5(path):
    """Rate, layout, and size and MD5 of each frame of PATH's first audio stream,
    decoded as bare packets: the container's trimming (edit lists, pre-skip,
    discard padding) is not applied, as the hardware decoder never sees it."""
    out = run(f"{FFMPEG}-flags2 +skip_manual -i {path} -map 0:a:0 -c:a pcm_f32le -f framemd5 -")
    return [line if line[0] == "#" else ",".join(line.split(",")[-2:])
            for line in out.stdout.splitlines()
            if line[0] != "#" or line.startswith(("#sample_rate", "#channel_layout"))]


def probe(path):
    """Codec, picture size, and each packet's size and key flag."""
    return run("ffprobe -v error -show_entries stream=codec_name,width,height:packet=size,flags "
               f"-of csv=p=0 {path}").stdout.splitlines()


def same(want, got, what):
    diff = next((i for i, (w, g) in enumerate(zip(want, got)) if w != g), min(len(want), len(got)))
    expect(len(want) > 10 and want == got,
           f"{what}: {len(got)} items, {len(want)} expected, first difference at {diff}")


def extracted_mkv(folder):
    """A Matroska file of what `inspect --extract` wrote for audio (codec.txt,
    extradata.bin, packets.bin of 32-bit big-endian length + bytes), so that
    FFmpeg decodes the packets with the extracted codec data and nothing else."""
    def element(eid, data):
        return eid + (1 << 56 | len(data)).to_bytes(8, "big") + data

    packets, blocks, at = read(f"{folder}/packets.bin"), [], 0
    while at < len(packets):
        n = int.from_bytes(packets[at:at + 4], "big")
        head = struct.pack(">BhB", 0x81, len(blocks), 0x80)  # track 1, time, key frame
        blocks.append(element(b"\xa3", head + packets[at + 4:at + 4 + n]))
        at += 4 + n
    codec = b"A_" + read(f"{folder}/codec.txt").strip().upper()
    track = (element(b"\xd7", b"\1") + element(b"\x83", b"\2") + element(b"\x86", codec) +
             element(b"\x63\xa2", read(f"{folder}/extradata.bin")))
    segment = (element(b"\x16\x54\xae\x6b", element(b"\xae", track)) +
               element(b"\x1f\x43\xb6\x75", element(b"\xe7", b"\0") + b"".join(blocks)))
    return write(f"{folder}.mkv", element(b"\x1a\x45\xdf\xa3", element(b"\x42\x82", b"matroska")) +
                 element(b"\x18\x53\x80\x67", segment))


def check_report(text, media, failed=False):
    """A --json report is one object {input, streams}; each stream has exactly
    KEYS, counts that add up, and bytes_out the size of its output, which a
    failed run must not leave. Returns the streams by index."""
    report = json.loads(text)
    expect(sorted(report) == ["input", "streams"] and report["input"] == media, f"report: {text}")
    streams = {s["index"]: s for s in report["streams"]}
    expect(len(streams) == len(report["streams"]), f"a stream is listed twice: {text}")
    for s in streams.values():
        counts = [s[k] for k in KEYS if k not in ("codec", "output")]
        expect(sorted(s) == sorted(KEYS) and all(type(c) is int and c >= 0 for c in counts) and
               s["converted"] + s["passed_through"] + s["dropped"] == s["packets"], f"stream {s}")
        if failed:
            expect(not os.path.exists(s["output"]), f"a failed run left {s['output']}")
        else:
            expect(os.path.getsize(s["output"]) == s["bytes_out"], f"bytes_out is wrong: {s}")
    return streams


def convert_suite(group):
    for case, media, status, expectation, checks, layouts in rows("convert.tsv", group):
        codec, expr = expectation.split(":", 1)
        outs = []
        for i, options in enumerate(o if o != "-" else "" for o in layouts.split("|")):
            r = run([TOOL, "convert", make(media), "--json", "-o", f"{case}{i}",
                     *shlex.split(options)], int(status))
            s = check_report(r.stdout, media, status != "0").get(0)
            expect(s and s["codec"] == codec and eval(expr, {}, s), f"{case}: not {expr}: {s}")
            outs.append(s["output"])
            if status != "0":
                expect(not os.path.exists(f"{case}{i}") or not os.listdir(f"{case}{i}"),
                       f"{case}: a failed run left files")
            else:
                expect(read(outs[0]) == read(outs[-1]), f"{case}: {options} changes the bytes")
        if status == "0":
            check_output(case, media, codec, checks.split(","), outs[0], s["packets"])


def check_output(case, media, codec, checks, out, packets):
    """The CHECKS of convert.tsv, then listing.tsv and faults.tsv."""
    if "bframes" in checks:
        types = run("ffprobe -v error -select_streams v:0 -show_entries frame=pict_type "
                    f"-of csv=p=0 {media}").stdout
        expect("B" in types, f"{media} has no B-frames: the test media are not what they should be")
    if "frames" in checks:
        same(frame_md5(media), frame_md5(out, DEMUXER[codec]), f"{case}: frames of {out}")
    if "pcm" in checks:
        same(pcm_md5(media), pcm_md5(out), f"{case}: samples of {out}")
    if "same" in checks:
        expect(read(out) == read(media), f"{case}: {out} is not {media}")
    listing, x = "", "x" + case
    if "nal" in checks:
        nal_codec = "hevc" if codec == "h265" else "avc"
        listing = "".join(f"nal {mkdual.nal_type(nal_codec, n)}\n"
                          for _, n in mkdual.nal_units(read(out)))
    for fmt in set(checks) & {"adts", "packets", "corvid", "ivf"}:
        extract = ["--extract", x] if any(c.startswith("x") for c in checks) else []
        listing = run([TOOL, "inspect", out, "--format", fmt, *extract]).stdout
    env = {"P": packets, "B": os.path.getsize(out)}
    for count, pattern in rows("listing.tsv", case):
        n = len(re.findall(subst(pattern, env), listing, re.M))
        expect(n == int(subst(count, env)), f"{case}: {n} lines match {pattern}, not {count}")
    video = glob.glob(f"{x}/video.*") + ["(no video.* extracted)"]
    if "xframes" in checks:
        same(frame_md5(media), frame_md5(video[0]), f"{case}: frames of {video[0]}")
    if "xprobe" in checks:
        same(probe(media), probe(video[0]), f"{case}: packets of {video[0]}")
    if "xpcm" in checks:
        same(pcm_md5(media), pcm_md5(extracted_mkv(x)), f"{case}: samples of {x}")
    env["O"] = [int(o) for o in re.findall(r"^(?:frame|packet) \d+ offset (\d+)", listing, re.M)]
    env["L"] = env["O"][-1] if env["O"] else 0
    for i, (damage, options, status, pattern) in enumerate(rows("faults.tsv", case)):
        op, at, *hex_bytes = subst(damage, env).split()
        data, at = bytearray(read(out)), int(at)
        if op == "cut":
            del data[at:]
        elif op == "from":
            del data[:at]
        else:
            data[at:at + len(hex_bytes[0]) // 2] = bytes.fromhex(hex_bytes[0])
        r = run([TOOL, "inspect", write(f"{case}.bad{i}", data), *shlex.split(options)],
                int(status))
        text = r.stdout if status == "0" else r.stderr
        expect((status == "0" or text.count("\n") == 1) and
               re.search(subst(pattern, env), text, re.M), f"{case}, {damage}: {text}")


def cli_suite():
    files = {"notes": b"This is not a media file.\nIt has two lines of text.\n",
             "empty.bin": b"", "tiny.bin": bytes.fromhex("00000001 09f0 00000001 419a"),
             "late.csv": b"4,5\n8,7\n", "bad.csv": b"offset,pts\n0,5\nx,7\n",
             "backwards.csv": b"0,5\n0,7\n", "outside.csv": b"0,5\n99,7\n",
             "short.rec": b"\x01\x64\x00", "ok.csv": b"0,100\n8,200\n"}
    for name, data in files.items():
        write(name, data)
    os.makedirs("folder.mp4")
    os.makedirs("folder")
    make("mixed.avi")
    for status, lines, err, out, args in rows("cli.tsv"):
        r = run([TOOL, *shlex.split(args)], int(status))
        expect((not lines or r.stderr.count("\n") == int(lines)) and re.search(err, r.stderr, re.M)
               and re.search(out, r.stdout, re.M), f"{args}: stdout {r.stdout!r}, {r.stderr!r}")

    # Only the stream with a converter is listed, into the default folder, with
    # bytes_in the size of its packets; -o changes where, not what, is written.
    s = check_report(run([TOOL, "convert", "mixed.avi", "--json"]).stdout, "mixed.avi")
    sizes = run("ffprobe -v error -select_streams v:0 -show_entries packet=size -of csv=p=0 "
                "mixed.avi").stdout.split()
    expect(list(s) == [0] and s[0]["output"] == "codecutil-out/stream0.m4v" and
           s[0]["bytes_in"] == sum(map(int, sizes)), f"mixed.avi: {s}")
    expect(read("human/stream0.m4v") == read(s[0]["output"]), "-o changed the bytes written")
    # A name that JSON must escape comes back as given.
    odd = 'odd "name"\\ with\ttab.avi'
    shutil.copy("mixed.avi", odd)
    check_report(run([TOOL, "convert", odd, "--json", "-o", "odd"]).stdout, odd)
    # Nothing to convert: done, with a note, and no output folder.
    r = run([TOOL, "convert", make("tone.wav"), "--json", "-o", "wav"])
    expect(check_report(r.stdout, "tone.wav") == {} and "no stream to convert" in r.stderr and
           not os.path.exists("wav"), f"tone.wav: {r.stderr}")

    # A split without enhancement layer, allowed: two pushes with their time
    # stamps (the second cuts the slice's start code, so the AUD ends in the first).
    r = run([TOOL, "split", "tiny.bin", "--codec", "avc", "--pts", "ok.csv", "-o", "ok", "--json",
             "--allow-warnings"])
    layers = json.loads(r.stdout)["layers"]
    expect(layers["BL"] == {"units": 2, "bytes": 12, "output": "ok/bl.h264"} and
           layers["EL"]["units"] == layers["MD"]["units"] == 0 and
           read("ok/units.csv") == b"type,len,pts\nBL,6,100\nBL,6,200\n", f"split: {r.stdout}")

    # Interrupted while its input stalls half-way and its output is staged:
    # exit 130, no file left.
    os.mkfifo("stall.ts")
    tool = subprocess.Popen([TOOL, "convert", "stall.ts", "-o", "stalled"],
                            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    with open("stall.ts", "wb") as fifo:
        fifo.write(read(make("long.ts"))[:os.path.getsize("long.ts") // 2])
        fifo.flush()
        for _ in range(300):
            if os.path.isdir("stalled") and os.listdir("stalled"):
                break
            time.sleep(0.1)
        expect(os.path.isdir("stalled") and os.listdir("stalled"), "no output staged in 30 s")
        tool.send_signal(signal.SIGINT)
        expect(tool.wait() == 130 and not os.listdir("stalled"),
               f"SIGINT: exit {tool.returncode}, left {os.listdir('stalled')}")


def samples_suite():
    """Without INPUT every bundled sample is converted into codecutil-out/NAME/;
    each video stream decodes to the sample's frames; the JSON form writes the
    same bytes."""
    summary = run([TOOL, "convert"]).stdout
    inputs = json.loads(run([TOOL, "convert", "--json", "-o", "json-out"]).stdout)["inputs"]
    bundled = [f for f in os.listdir(os.path.join(SOURCE_DIR, "samples"))
               if f[0] != "." and not f.endswith((".sh", ".md", ".txt"))]
    expect(len(inputs) == len(bundled), f"{len(inputs)} samples reported, {len(bundled)} bundled")
    videos = 0
    for report in inputs:
        name = report["input"]
        for s in check_report(json.dumps(report), name).values():
            if s["codec"] in DEMUXER:
                expect(s["dropped"] == 0 and s["converted"] >= 1 and name in summary, f"{s}")
                same(frame_md5(name), frame_md5(s["output"], DEMUXER[s["codec"]]), name)
                human = f"codecutil-out/{os.path.splitext(os.path.basename(name))[0]}/"
                human += os.path.basename(s["output"])
                expect(read(human) == read(s["output"]), f"{human} differs")
                videos += 1
    expect(videos >= 3, f"only {videos} H.264/H.265/MPEG-4 streams among the samples")


def split_suite(codec):
    """Two encodes of one picture source (base and enhancement layer: aligned
    IDRs, HRD timing SEI, AUDs) interleaved by mkdual into a dual-layer stream,
    which `codecutil split` must take apart again as split.tsv says."""
    ext, other = ("h264", "hevc") if codec == "avc" else ("h265", "avc")
    run(f"{FFMPEG}-f lavfi -i testsrc2=size=176x144:rate=25 -frames:v 30 -pix_fmt yuv420p "
        "-f rawvideo in.yuv")
    for name, rate, bframes in (("bl", 300, 0), ("el", 600, 0), ("blb", 300, 2), ("elb", 600, 2)):
        common = (f"--input-res 176x144 --fps 25 --frames 30 --bframes {bframes} "
                  f"--vbv-maxrate {rate} --vbv-bufsize {2 * rate} --keyint 10 --min-keyint 10 "
                  "--no-scenecut --aud")
        if codec == "avc":
            run(f"x264 --quiet {common} --b-pyramid none --nal-hrd vbr --pic-struct "
                f"-o {name}.{ext} in.yuv")
        else:  # x265 leaves the AUD out of the first access unit
            run(f"x265 --log-level error --input in.yuv {common} --hrd -o {name}.raw && "
                f"{FFMPEG}-i {name}.raw -c copy -bsf:v hevc_metadata=aud=insert {name}.{ext}")
    mkdual_py = f"python3 {SOURCE_DIR}/tools/mkdual/mkdual.py --codec {codec}"
    run(f"{mkdual_py} bl.{ext} el.{ext} -o dual.bin --csv dual.csv --fps 25")
    run(f"{mkdual_py} blb.{ext} elb.{ext} -o dualb.bin --csv dualb.csv --fps 25")
    run(f"{mkdual_py} bl.{ext} el.{ext} -o dual4.bin --csv dual4.csv --length-size 4 "
        "--codec-data record.bin")
    for container in ("ts", "mp4"):
        run(f"{FFMPEG}-r 25 -f {DEMUXER[ext]} -i dual.bin -c copy dual.{container}")
    md = b"".join(b"\0\0\1\x19MD%d" % i for i in range(30))  # mkdual's metadata units
    names = (f"bl.{ext}", f"el.{ext}", "md.bin")

    def nals(data):  # start codes of either length compare equal
        return [n.rstrip(b"\0") for _, n in mkdual.nal_units(data)]

    for case, media, options, status, layers, times in rows("split.tsv"):
        options = options.replace("OTHER", other).replace("CODEC", codec)
        r = run([TOOL, "split", media, "-o", case, *shlex.split(options)], int(status))
        if status != "0":
            expect(not os.path.exists(case) or not os.listdir(case), f"{case}: files left")
            continue
        *params, bl, el = [read(f"{n}.{ext}") if n != "params" else n for n in layers.split()]
        got = [read(f"{case}/{n}") for n in names]
        if params:  # the record's parameter sets, as the first access unit has them
            types = (32, 33, 34) if codec == "hevc" else (7, 8)
            first = [n for t in types for _, n in mkdual.access_units(codec, bl)[0]
                     if mkdual.nal_type(codec, n) == t]
            expect([nals(g) for g in got] == [first + nals(bl), nals(el), nals(md)],
                   f"{case}: the layers differ")
        else:
            expect(got == [bl, el, md], f"{case}: the layers differ")
        units = list(csv.DictReader(open(f"{case}/units.csv")))
        pts = {t: [int(u["pts"]) for u in units if u["type"] == t] for t in ("BL", "EL", "MD")}
        expect(eval(times, {}, dict(pts, N=len(mkdual.nal_units(bl)))), f"{case}: not {times}")
        if "--json" in options:
            report = json.loads(r.stdout)
            want = [{"units": len(pts[t]), "bytes": len(g), "output": f"{case}/{n}"}
                    for t, g, n in zip(pts, got, names)]
            expect(report["units_csv"] == f"{case}/units.csv" and
                   [report["layers"][t] for t in pts] == want, f"{case}: {r.stdout}")


if __name__ == "__main__":
    suites = {"convert": convert_suite, "cli": cli_suite, "samples": samples_suite,
              "split": split_suite}
    suites[sys.argv[1]](*sys.argv[2:])
    print("ok:", *sys.argv[1:])
