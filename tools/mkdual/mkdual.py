#!/usr/bin/env python3
"""Builds a dual-layer test stream from two Annex-B elementary streams.

    mkdual.py --codec avc|hevc BASE EL -o OUT [--csv OUT.csv] [--fps N[/D]]
              [--start-ns NS] [--length-size 1..4 --codec-data FILE]

BASE and EL are streams of the same codec with the same number of access units
in decode order and aligned IDR pictures (for instance two x264 or x265
encodes of one source with a fixed GOP and no scene cuts). For every access
unit OUT holds the base layer's NAL units, then the enhancement layer's NAL
units each wrapped behind 0x7E 0x01, then one metadata unit 0x7C 0x01 0x19
with a payload naming the access unit ("MD<index>", no zero bytes).

Units keep their own start codes (00 00 01 or 00 00 00 01), so splitting OUT
gives back BASE and EL byte for byte. With --length-size, every unit is
behind a big-endian length of that many bytes instead, and --codec-data gets
the base layer's decoder configuration record (avcC or hvcC, parameter sets
taken from BASE's first access unit) for the splitter's codec data.

The CSV has one row "offset,pts" per access unit: the offset of its first
byte in OUT and its time stamp in nanoseconds, start-ns + index / fps
(truncated). These are presentation times only for streams without picture
reordering.
"""
import argparse
import sys

AVC, HEVC = "avc", "hevc"


def nal_units(data):
    """(start code length, NAL unit bytes) of an Annex-B stream, in order."""
    units = []
    i = data.find(b"\x00\x00\x01")
    while i >= 0:
        sc = 4 if i > 0 and data[i - 1] == 0 else 3
        begin = i + 3
        nxt = data.find(b"\x00\x00\x01", begin)
        end = len(data) if nxt < 0 else (nxt - 1 if data[nxt - 1] == 0 else nxt)
        units.append((sc, data[begin:end]))
        i = nxt
    return units


def nal_type(codec, nal):
    return (nal[0] >> 1) & 0x3F if codec == HEVC else nal[0] & 0x1F


def is_vcl(codec, t):
    return t < 32 if codec == HEVC else 1 <= t <= 5


def first_slice_of_picture(codec, nal):
    # H.264 first_mb_in_slice == 0 codes as the single bit 1; H.265
    # first_slice_segment_in_pic_flag follows the 2-byte header.
    if codec == HEVC:
        return len(nal) > 2 and nal[2] & 0x80 != 0
    return len(nal) > 1 and nal[1] & 0x80 != 0


def starts_access_unit(codec, t):
    # Non-VCL units that may only precede a picture (H.264 7.4.1.2.3,
    # H.265 7.4.2.4.4).
    if codec == HEVC:
        return t in (32, 33, 34, 35, 39) or 41 <= t <= 44 or 48 <= t <= 55
    return t in (6, 7, 8, 9) or 14 <= t <= 18


def access_units(codec, data):
    aus, cur, has_vcl = [], [], False
    for sc, nal in nal_units(data):
        if not nal:
            continue
        t = nal_type(codec, nal)
        vcl = is_vcl(codec, t)
        new_au = has_vcl and ((vcl and first_slice_of_picture(codec, nal)) or
                              (not vcl and starts_access_unit(codec, t)))
        if new_au:
            aus.append(cur)
            cur, has_vcl = [], False
        cur.append((sc, nal))
        has_vcl = has_vcl or vcl
    if cur:
        aus.append(cur)
    return aus


def avc_record(au, size):
    sps = [n for _, n in au if nal_type(AVC, n) == 7]
    pps = [n for _, n in au if nal_type(AVC, n) == 8]
    if not sps or not pps:
        raise SystemExit("mkdual: no SPS/PPS in the base layer's first access unit")
    rec = bytearray([1, sps[0][1], sps[0][2], sps[0][3], 0xFC | (size - 1), 0xE0 | len(sps)])
    for n in sps:
        rec += len(n).to_bytes(2, "big") + n
    rec.append(len(pps))
    for n in pps:
        rec += len(n).to_bytes(2, "big") + n
    return bytes(rec)


def hevc_record(au, size):
    # HEVCDecoderConfigurationRecord: the profile/format fields are not
    # needed by the splitter and stay zero except the version.
    rec = bytearray(21)
    rec[0] = 1
    rec.append(0xFC | (size - 1))
    arrays = []
    for t in (32, 33, 34):
        units = [n for _, n in au if nal_type(HEVC, n) == t]
        if units:
            arrays.append((t, units))
    if len(arrays) < 3:
        raise SystemExit("mkdual: no VPS/SPS/PPS in the base layer's first access unit")
    rec.append(len(arrays))
    for t, units in arrays:
        rec.append(0x80 | t)
        rec += len(units).to_bytes(2, "big")
        for n in units:
            rec += len(n).to_bytes(2, "big") + n
    return bytes(rec)


def parse_fps(text):
    num, _, den = text.partition("/")
    try:
        n, d = int(num), int(den or "1")
    except ValueError:
        raise SystemExit(f"mkdual: --fps needs N or N/D (got '{text}')")
    if n <= 0 or d <= 0:
        raise SystemExit(f"mkdual: --fps must be positive (got '{text}')")
    return n, d


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("--codec", choices=(AVC, HEVC), required=True)
    ap.add_argument("base")
    ap.add_argument("el")
    ap.add_argument("-o", "--output", required=True)
    ap.add_argument("--csv")
    ap.add_argument("--fps", default="25")
    ap.add_argument("--start-ns", type=int, default=1000000000)
    ap.add_argument("--length-size", type=int, choices=(1, 2, 3, 4))
    ap.add_argument("--codec-data")
    args = ap.parse_args()
    if (args.length_size is None) != (args.codec_data is None):
        raise SystemExit("mkdual: --length-size and --codec-data go together")
    fps_num, fps_den = parse_fps(args.fps)

    layers = []
    for path in (args.base, args.el):
        with open(path, "rb") as f:
            aus = access_units(args.codec, f.read())
        if not aus:
            raise SystemExit(f"mkdual: no access units in '{path}'")
        layers.append(aus)
    base, el = layers
    if len(base) != len(el):
        raise SystemExit(f"mkdual: {len(base)} base-layer and {len(el)} enhancement-layer access units")

    def unit(sc, nal):
        if args.length_size is None:
            return (b"\x00" * (sc - 3)) + b"\x00\x00\x01" + nal
        if len(nal) >> (8 * args.length_size):
            raise SystemExit(f"mkdual: a {len(nal)}-byte unit does not fit a {args.length_size}-byte length")
        return len(nal).to_bytes(args.length_size, "big") + nal

    out, rows = bytearray(), []
    for i, (b_au, e_au) in enumerate(zip(base, el)):
        rows.append((len(out), args.start_ns + i * 1000000000 * fps_den // fps_num))
        for sc, nal in b_au:
            out += unit(sc, nal)
        for sc, nal in e_au:
            out += unit(sc, b"\x7e\x01" + nal)
        out += unit(3, b"\x7c\x01\x19" + b"MD%d" % i)

    with open(args.output, "wb") as f:
        f.write(out)
    if args.csv:
        with open(args.csv, "w") as f:
            f.write("offset,pts\n")
            for offset, pts in rows:
                f.write(f"{offset},{pts}\n")
    if args.codec_data:
        make = hevc_record if args.codec == HEVC else avc_record
        with open(args.codec_data, "wb") as f:
            f.write(make(base[0], args.length_size))
    print(f"mkdual: {len(base)} access units, {len(out)} bytes")


if __name__ == "__main__":
    sys.exit(main())
