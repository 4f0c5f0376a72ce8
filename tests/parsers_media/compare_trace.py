#!/usr/bin/env python3
"""Encodes a short clip with x264 or x265, feeds every SPS and SEI NAL unit to
the splitter's parsers (parsers_probe) and checks the values they report
against FFmpeg's trace_headers dump of the same units.

    compare_trace.py PROBE CASE WORKDIR

Checked per SPS: num_units_in_tick, time_scale, reorder depth, NAL/VCL HRD
presence, the three HRD delay lengths, pic_struct_present_flag (AVC) or
frame_field_info_present_flag (HEVC); an HEVC SPS with field_seq_flag 1 must
be rejected. Checked per SEI NAL unit: return value 0, buffering periods and
picture timings counted, cpb_removal_delay, dpb_output_delay and pic_struct
of each picture timing, and the getters' clock and reorder depth. Over the
whole stream: the DPB output times are distinct, and for streams of plain
frames they are exactly 0, 1, ..., N-1 frame durations (output order equals
display order and starts at 0).
"""
import os
import re
import subprocess
import sys

W, H, FRAMES = 176, 144, 40

# name: (codec, encoder command after the common input arguments, fps, what
#        the DPB output times must satisfy: "frames" = exactly 0..N-1 frame
#        durations, "distinct", or None). x265 with --pic-struct codes its
#        delays in frame ticks while frame_field_info_present_flag makes the
#        parser halve them (field ticks, as H.265 intends), so output times
#        collide there by design.
CASES = {
    "avc_hrd_bframes": ("avc", ["--bframes", "3", "--b-pyramid", "normal", "--nal-hrd", "vbr",
                                "--vbv-maxrate", "800", "--vbv-bufsize", "1600", "--keyint", "12",
                                "--min-keyint", "12", "--no-scenecut", "--pic-struct"], "25", "frames"),
    "avc_hrd_cbr_ntsc": ("avc", ["--bframes", "2", "--b-pyramid", "none", "--nal-hrd", "cbr",
                                 "--bitrate", "400", "--vbv-maxrate", "400", "--vbv-bufsize", "800",
                                 "--keyint", "10", "--min-keyint", "10", "--no-scenecut"],
                         "30000/1001", "frames"),
    "avc_hrd_interlaced": ("avc", ["--tff", "--bframes", "2", "--nal-hrd", "vbr", "--vbv-maxrate",
                                   "800", "--vbv-bufsize", "1600", "--keyint", "16",
                                   "--pic-struct"], "25", "frames"),
    "avc_hrd_pulldown": ("avc", ["--pulldown", "32", "--bframes", "2", "--nal-hrd", "vbr",
                                 "--vbv-maxrate", "800", "--vbv-bufsize", "1600", "--keyint", "16"],
                         "24000/1001", "distinct"),
    "avc_no_hrd": ("avc", ["--bframes", "2", "--keyint", "16"], "25", None),
    "hevc_hrd_bframes": ("hevc", ["--hrd", "--vbv-maxrate", "800", "--vbv-bufsize", "1600",
                                  "--bframes", "3", "--keyint", "12", "--min-keyint", "12",
                                  "--no-scenecut"], "25", "frames"),
    "hevc_hrd_pyramid_open_gop": ("hevc", ["--hrd", "--vbv-maxrate", "800", "--vbv-bufsize",
                                           "1600", "--bframes", "4", "--b-pyramid", "--open-gop",
                                           "--keyint", "16", "--min-keyint", "16",
                                           "--no-scenecut"], "30000/1001", "frames"),
    "hevc_hrd_pic_struct": ("hevc", ["--hrd", "--vbv-maxrate", "800", "--vbv-bufsize", "1600",
                                     "--bframes", "2", "--pic-struct", "0", "--keyint", "12"],
                            "25", None),
    "hevc_field_seq": ("hevc", ["--hrd", "--vbv-maxrate", "800", "--vbv-bufsize", "1600",
                                "--interlace", "tff", "--bframes", "2", "--keyint", "12"],
                       "25", None),
}

TRACE_FIELD = re.compile(r"\]\s+\d+\s+(\S+)\s+[01]+\s+=\s+(-?\d+)\s*$")


def run(cmd, **kw):
    return subprocess.run(cmd, check=True, capture_output=True, text=True, **kw)


def encode(case, workdir):
    codec, args, fps, _ = CASES[case]
    yuv = os.path.join(workdir, "in.yuv")
    if not os.path.exists(yuv):
        run(["ffmpeg", "-hide_banner", "-loglevel", "error", "-y", "-f", "lavfi", "-i",
             f"testsrc2=size={W}x{H}:rate=25", "-frames:v", str(FRAMES), "-pix_fmt", "yuv420p",
             "-f", "rawvideo", yuv])
    out = os.path.join(workdir, case + (".h264" if codec == "avc" else ".hevc"))
    if codec == "avc":
        run(["x264", "--quiet", "--input-res", f"{W}x{H}", "--fps", fps, "--frames",
             str(FRAMES), *args, "-o", out, yuv])
    else:
        run(["x265", "--log-level", "error", "--input", yuv, "--input-res", f"{W}x{H}", "--fps",
             fps, "--frames", str(FRAMES), *args, "-o", out])
    return codec, out


def trace_units(path):
    """NAL units of the stream as trace_headers prints them, in file order."""
    res = subprocess.run(["ffmpeg", "-hide_banner", "-nostats", "-i", path, "-c", "copy", "-bsf:v",
                          "trace_headers", "-f", "null", "-"], capture_output=True, text=True)
    if res.returncode != 0:
        raise SystemExit("ffmpeg trace failed:\n" + res.stderr[-2000:])
    units, cur, seen_packet = [], None, False
    for line in res.stderr.splitlines():
        if "Packet:" in line:
            seen_packet = True  # units before the first packet are extradata copies
            continue
        if not seen_packet:
            continue
        m = TRACE_FIELD.search(line)
        if not m:
            continue
        name, value = m.group(1), int(m.group(2))
        if name == "forbidden_zero_bit":
            cur = {"fields": {}, "seq": []}
            units.append(cur)
        if cur is None:
            continue
        cur["fields"].setdefault(name, value)
        cur["seq"].append((name, value))
    return units


def probe_lines(probe, codec, path):
    out = run([probe, codec, path]).stdout
    return [l.split() for l in out.splitlines() if l.split() and l.split()[0] in ("SPS", "SEI")]


def kv(tokens):
    return {k: v for k, v in (t.split("=", 1) for t in tokens if "=" in t)}


def expect_sps(codec, f):
    if codec == "avc":
        exp = {
            "num_units_in_tick": f.get("num_units_in_tick", None),
            "time_scale": f.get("time_scale", None),
            "reorder": f["max_num_reorder_frames"] if f.get("bitstream_restriction_flag") else 16,
            "nal_hrd": f.get("nal_hrd_parameters_present_flag", 0),
            "vcl_hrd": f.get("vcl_hrd_parameters_present_flag", 0),
            "pic_struct_present": f.get("pic_struct_present_flag", 0),
        }
        hrd = exp["nal_hrd"] or exp["vcl_hrd"]
        exp["init_len"] = f["initial_cpb_removal_delay_length_minus1"] + 1 if hrd else 24
        exp["cpb_len"] = f["cpb_removal_delay_length_minus1"] + 1 if hrd else 24
        exp["dpb_len"] = f["dpb_output_delay_length_minus1"] + 1 if hrd else 24
    else:
        exp = {
            "num_units_in_tick": f.get("vui_num_units_in_tick", 1001),
            "time_scale": f.get("vui_time_scale", 60000),
            "nal_hrd": f.get("nal_hrd_parameters_present_flag", 0),
            "vcl_hrd": f.get("vcl_hrd_parameters_present_flag", 0),
            "frame_field_info": f.get("frame_field_info_present_flag", 0),
        }
        hrd = exp["nal_hrd"] or exp["vcl_hrd"]
        exp["init_len"] = f["initial_cpb_removal_delay_length_minus1"] + 1 if hrd else 24
        exp["cpb_len"] = f["au_cpb_removal_delay_length_minus1"] + 1 if hrd else 24
        exp["dpb_len"] = f["dpb_output_delay_length_minus1"] + 1 if hrd else 24
    return {k: v for k, v in exp.items() if v is not None}


def hevc_reorder(unit):
    vals = [v for n, v in unit["seq"] if n.startswith("sps_max_num_reorder_pics[")]
    return vals[-1]  # the highest sub-layer


def main():
    probe, case = sys.argv[1], sys.argv[2]
    workdir = os.path.join(sys.argv[3], case)  # own directory: cases may run in parallel
    os.makedirs(workdir, exist_ok=True)
    codec, path = encode(case, workdir)
    sps_types = (7, 15) if codec == "avc" else (33,)
    sei_types = (6,) if codec == "avc" else (39,)
    units = [u for u in trace_units(path)
             if u["fields"].get("nal_unit_type") in sps_types + sei_types]
    lines = probe_lines(probe, codec, path)
    errors = []
    if len(units) != len(lines):
        raise SystemExit(f"{case}: {len(units)} SPS/SEI units in the trace, {len(lines)} probed")

    active = None        # expected SPS values once a buffering period has been seen
    defined = {}         # expected values per accepted SPS id
    prev_cpb, timings, outs = None, 0, []
    for i, (u, tokens) in enumerate(zip(units, lines)):
        f = u["fields"]
        got = kv(tokens[1:])
        where = f"{case} unit {i} ({tokens[0]})"
        if f["nal_unit_type"] in sps_types:
            if tokens[0] != "SPS":
                errors.append(f"{where}: expected an SPS line")
                continue
            if codec == "hevc" and f.get("field_seq_flag", 0):
                if tokens[1:] != ["rejected"]:
                    errors.append(f"{where}: field_seq_flag 1 must be rejected, got {tokens[1:]}")
                continue
            exp = expect_sps(codec, f)
            if codec == "hevc":
                exp["reorder"] = hevc_reorder(u)
            for k, v in exp.items():
                if int(got.get(k, -1)) != v:
                    errors.append(f"{where}: {k} {got.get(k)} != trace {v}")
            defined[f.get("seq_parameter_set_id", f.get("sps_seq_parameter_set_id", 0))] = exp
            continue

        # SEI NAL unit
        types = [v for n, v in u["seq"] if n == "last_payload_type_byte"]
        bp, pt = types.count(0), types.count(1)
        if bp and defined:
            sid = f.get("seq_parameter_set_id", f.get("bp_seq_parameter_set_id", 0))
            active = defined.get(sid, active)
        if active is None:
            pt = 0  # picture timing before any usable buffering period: skipped
        if int(got["ret"]) != 0:
            errors.append(f"{where}: parse_sei_messages returned {got['ret']}")
        if int(got["bp"]) != bp or int(got["pt"]) != pt:
            errors.append(f"{where}: bp/pt {got['bp']}/{got['pt']} != trace {bp}/{pt}")
            continue
        if not pt:
            continue
        timings += 1
        if codec == "avc":
            cpb = f["cpb_removal_delay"]
            # A zero delay after the first picture stands for the previous one + 2.
            if cpb == 0 and timings != 1:
                cpb = prev_cpb + 2
            prev_cpb = cpb
            dpb = f["dpb_output_delay"]
        else:
            cpb = f["au_cpb_removal_delay_minus1"] + 1
            dpb = f["pic_dpb_output_delay"]
        checks = {"cpb_removal_delay": cpb, "dpb_output_delay": dpb,
                  "units": active["num_units_in_tick"], "reorder": active["reorder"]}
        if "pic_struct" in f:
            checks["pic_struct"] = f["pic_struct"]
        for k, v in checks.items():
            if int(got.get(k, -1)) != v:
                errors.append(f"{where}: {k} {got.get(k)} != trace {v}")
        outs.append(int(got["out"]))

    _, _, _, rule = CASES[case]
    if outs and rule:
        if len(set(outs)) != len(outs):
            errors.append(f"{case}: DPB output times not distinct: {outs}")
        if rule == "frames":
            unit = active["num_units_in_tick"]
            expected = [k * unit for k in range(len(outs))]
            if sorted(outs) != expected:
                errors.append(f"{case}: DPB output times {sorted(outs)} != {expected}")
    args = CASES[case][1]
    must_time = any(a in args for a in ("--nal-hrd", "--hrd")) and "--interlace" not in args
    if must_time and timings == 0:
        errors.append(f"{case}: no picture timing was parsed")

    for e in errors[:40]:
        print(e)
    print(f"{case}: {len(units)} units, {timings} picture timings, {len(errors)} mismatches")
    return 1 if errors else 0


if __name__ == "__main__":
    sys.exit(main())
