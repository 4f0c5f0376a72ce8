#!/usr/bin/env python3
"""Encodes a short clip with x264 or x265, feeds its SPS and SEI NAL units to
the parsers (parsers_probe) and checks what they report against FFmpeg's
trace_headers dump of the same units: per SPS the clock, reorder depth, HRD
presence and delay lengths (an HEVC SPS with field_seq_flag 1 is rejected);
per SEI unit the result, the messages counted and each picture timing's
delays and pic_struct; over the stream, that the DPB output times are
distinct and, for plain frames, exactly 0..N-1 frame durations.

    compare_trace.py PROBE CASE WORKDIR
"""
import os
import re
import subprocess
import sys

W, H, FRAMES = 176, 144, 40
VBV = "--vbv-maxrate 800 --vbv-bufsize 1600 "
# name: (codec, encoder options, fps, rule for the DPB output times). x265
# with --pic-struct codes frame ticks while frame_field_info_present_flag makes
# the parser halve them, so output times collide there by design.
CASES = {
    "avc_hrd_bframes": ("avc", "--bframes 3 --b-pyramid normal --nal-hrd vbr " + VBV +
                        "--keyint 12 --min-keyint 12 --no-scenecut --pic-struct", "25", "frames"),
    "avc_hrd_cbr_ntsc": ("avc", "--bframes 2 --b-pyramid none --nal-hrd cbr --bitrate 400 "
                         "--vbv-maxrate 400 --vbv-bufsize 800 --keyint 10 --min-keyint 10 "
                         "--no-scenecut", "30000/1001", "frames"),
    "avc_hrd_interlaced": ("avc", "--tff --bframes 2 --nal-hrd vbr " + VBV + "--keyint 16 "
                           "--pic-struct", "25", "frames"),
    "avc_hrd_pulldown": ("avc", "--pulldown 32 --bframes 2 --nal-hrd vbr " + VBV + "--keyint 16",
                         "24000/1001", "distinct"),
    "avc_no_hrd": ("avc", "--bframes 2 --keyint 16", "25", None),
    "hevc_hrd_bframes": ("hevc", "--hrd " + VBV + "--bframes 3 --keyint 12 --min-keyint 12 "
                         "--no-scenecut", "25", "frames"),
    "hevc_hrd_pyramid_open_gop": ("hevc", "--hrd " + VBV + "--bframes 4 --b-pyramid --open-gop "
                                  "--keyint 16 --min-keyint 16 --no-scenecut", "30000/1001",
                                  "frames"),
    "hevc_hrd_pic_struct": ("hevc", "--hrd " + VBV + "--bframes 2 --pic-struct 0 --keyint 12",
                            "25", None),
    "hevc_field_seq": ("hevc", "--hrd " + VBV + "--interlace tff --bframes 2 --keyint 12", "25",
                       None),
}
TRACE_FIELD = re.compile(r"\]\s+\d+\s+(\S+)\s+[01]+\s+=\s+(-?\d+)\s*$")


def run(cmd):
    return subprocess.run(cmd, check=True, capture_output=True, text=True)


def encode(codec, args, fps, workdir):
    yuv, out = os.path.join(workdir, "in.yuv"), os.path.join(workdir, "out." + codec)
    run(["ffmpeg", "-loglevel", "error", "-y", "-f", "lavfi", "-i", f"testsrc2=size={W}x{H}",
         "-frames:v", str(FRAMES), "-pix_fmt", "yuv420p", "-f", "rawvideo", yuv])
    common = ["--input-res", f"{W}x{H}", "--fps", fps, "--frames", str(FRAMES), *args.split()]
    if codec == "avc":
        run(["x264", "--quiet", *common, "-o", out, yuv])
    else:
        run(["x265", "--log-level", "error", "--input", yuv, *common, "-o", out])
    return out


def trace_units(path):
    """Fields of each NAL unit after the first packet (before it: extradata)."""
    err = run(["ffmpeg", "-nostats", "-i", path, "-c", "copy", "-bsf:v", "trace_headers",
               "-f", "null", "-"]).stderr
    units, in_packets = [], False
    for line in err.splitlines():
        in_packets = in_packets or "Packet:" in line
        m = TRACE_FIELD.search(line) if in_packets else None
        if m:
            if m.group(1) == "forbidden_zero_bit":
                units.append({"seq": []})
            units[-1]["seq"].append((m.group(1), int(m.group(2))))
    for u in units:
        u["f"] = {}
        for name, value in u["seq"]:
            u["f"].setdefault(name, value)
    return units


def expect_sps(codec, u):
    f = u["f"]
    hrd = f.get("nal_hrd_parameters_present_flag", 0) or f.get("vcl_hrd_parameters_present_flag", 0)
    exp = {"nal_hrd": f.get("nal_hrd_parameters_present_flag", 0),
           "vcl_hrd": f.get("vcl_hrd_parameters_present_flag", 0),
           "init_len": f["initial_cpb_removal_delay_length_minus1"] + 1 if hrd else 24,
           "dpb_len": f["dpb_output_delay_length_minus1"] + 1 if hrd else 24}
    if codec == "avc":
        exp.update(num_units_in_tick=f.get("num_units_in_tick"), time_scale=f.get("time_scale"),
                   reorder=f["max_num_reorder_frames"] if f.get("bitstream_restriction_flag") else 16,
                   pic_struct_present=f.get("pic_struct_present_flag", 0),
                   cpb_len=f["cpb_removal_delay_length_minus1"] + 1 if hrd else 24)
    else:
        exp.update(num_units_in_tick=f.get("vui_num_units_in_tick", 1001),
                   time_scale=f.get("vui_time_scale", 60000),
                   frame_field_info=f.get("frame_field_info_present_flag", 0),
                   reorder=[v for n, v in u["seq"] if n.startswith("sps_max_num_reorder_pics[")][-1],
                   cpb_len=f["au_cpb_removal_delay_length_minus1"] + 1 if hrd else 24)
    return {k: v for k, v in exp.items() if v is not None}


def main():
    probe, case = sys.argv[1], sys.argv[2]
    codec, args, fps, rule = CASES[case]
    workdir = os.path.join(sys.argv[3], case)  # cases may run in parallel
    os.makedirs(workdir, exist_ok=True)
    path = encode(codec, args, fps, workdir)
    sps_types, sei_type = ((7, 15), 6) if codec == "avc" else ((33,), 39)
    units = [u for u in trace_units(path) if u["f"].get("nal_unit_type") in (*sps_types, sei_type)]
    lines = [l.split() for l in run([probe, codec, path]).stdout.splitlines()]
    if len(units) != len(lines):
        sys.exit(f"{case}: {len(units)} SPS/SEI units in the trace, {len(lines)} probed")
    errors, defined, active, prev_cpb, outs = [], {}, None, None, []

    def check(where, got, exp):
        errors.extend(f"{where}: {k} {got.get(k)} != trace {v}" for k, v in exp.items()
                      if int(got.get(k, -1)) != v)

    for i, (u, tokens) in enumerate(zip(units, lines)):
        f, got, where = u["f"], dict(t.split("=", 1) for t in tokens[1:] if "=" in t), f"{case} unit {i}"
        if f["nal_unit_type"] in sps_types:
            if codec == "hevc" and f.get("field_seq_flag", 0):
                if tokens != ["SPS", "rejected"]:
                    errors.append(f"{where}: field_seq_flag 1 must be rejected, got {tokens}")
                continue
            exp = expect_sps(codec, u)
            check(where, got, exp)
            defined[f.get("seq_parameter_set_id", f.get("sps_seq_parameter_set_id", 0))] = exp
            continue
        types = [v for n, v in u["seq"] if n == "last_payload_type_byte"]
        bp, pt = types.count(0), types.count(1)
        if bp and defined:
            active = defined.get(f.get("seq_parameter_set_id", f.get("bp_seq_parameter_set_id", 0)), active)
        pt = pt if active else 0  # picture timing before any usable buffering period: skipped
        check(where, got, {"ret": 0, "bp": bp, "pt": pt})
        if not pt:
            continue
        if codec == "avc":  # a zero delay after the first picture stands for the previous + 2
            cpb = f["cpb_removal_delay"] if f["cpb_removal_delay"] or not outs else prev_cpb + 2
            dpb = f["dpb_output_delay"]
        else:
            cpb, dpb = f["au_cpb_removal_delay_minus1"] + 1, f["pic_dpb_output_delay"]
        prev_cpb = cpb
        exp = {"cpb_removal_delay": cpb, "dpb_output_delay": dpb,
               "units": active["num_units_in_tick"], "reorder": active["reorder"]}
        if "pic_struct" in f:
            exp["pic_struct"] = f["pic_struct"]
        check(where, got, exp)
        outs.append(int(got["out"]))

    if outs and rule and len(set(outs)) != len(outs):
        errors.append(f"{case}: DPB output times not distinct: {outs}")
    if outs and rule == "frames":
        expected = [k * active["num_units_in_tick"] for k in range(len(outs))]
        if sorted(outs) != expected:
            errors.append(f"{case}: DPB output times {sorted(outs)} != {expected}")
    if "hrd" in args and "--interlace" not in args and not outs:
        errors.append(f"{case}: no picture timing was parsed")
    for e in errors[:40]:
        print(e)
    print(f"{case}: {len(units)} units, {len(outs)} picture timings, {len(errors)} mismatches")
    return 1 if errors else 0


if __name__ == "__main__":
    sys.exit(main())
