#!/usr/bin/env python3
# Encodes a short clip with x264 or x265 as cases.tsv says, feeds its SPS and
# SEI NAL units to the parsers (parsers_probe) and checks what they report
# against FFmpeg's trace_headers dump of the same units: per SPS the clock,
# reorder depth, HRD presence and delay lengths (an HEVC SPS with
# field_seq_flag 1 is rejected); per SEI unit the result, the messages counted
# and each picture timing's delays and pic_struct; over the stream, the DPB
# output times.
#
#   compare_trace.py PROBE CASE WORKDIR
import os
import re
import subprocess
import sys

# One syntax element of a trace_headers line: "[...] position name bits = value".
FIELD = re.compile(r"\][ \t]+\d+[ \t]+(\S+)[ \t]+[01]+[ \t]+=[ \t]+(-?\d+)[ \t]*$", re.M)


def run(cmd):
    return subprocess.run(cmd, shell=True, check=True, capture_output=True, text=True)


def trace_units(path):
    """(fields in order, first value per field) of each NAL unit after the first packet."""
    err = run(f"ffmpeg -nostats -i {path} -c copy -bsf:v trace_headers -f null -").stderr
    units = []
    for name, value in FIELD.findall(err[err.find("Packet:"):]):  # before it: extradata
        if name == "forbidden_zero_bit":  # the first field of every NAL unit
            units.append([])
        units[-1].append((name, int(value)))
    return [(seq, dict(reversed(seq))) for seq in units]


def expect(ok, what):
    if not ok:
        sys.exit(what)


def expect_sps(codec, seq, f):
    """What the parser must make of an SPS with the trace's fields F (SEQ: in order)."""
    nal = f.get("nal_hrd_parameters_present_flag", 0)
    vcl = f.get("vcl_hrd_parameters_present_flag", 0)

    def length(field):  # without HRD parameters the delays are 24 bits long
        return f[field] + 1 if nal or vcl else 24

    exp = {"nal_hrd": nal, "vcl_hrd": vcl, "dpb_len": length("dpb_output_delay_length_minus1"),
           "init_len": length("initial_cpb_removal_delay_length_minus1")}
    if codec == "avc":
        restricted = f.get("bitstream_restriction_flag")
        exp.update(num_units_in_tick=f.get("num_units_in_tick"), time_scale=f.get("time_scale"),
                   reorder=f["max_num_reorder_frames"] if restricted else 16,
                   pic_struct_present=f.get("pic_struct_present_flag", 0),
                   cpb_len=length("cpb_removal_delay_length_minus1"))
    else:
        exp.update(num_units_in_tick=f.get("vui_num_units_in_tick", 1001),
                   time_scale=f.get("vui_time_scale", 60000),
                   frame_field_info=f.get("frame_field_info_present_flag", 0),
                   reorder=[v for n, v in seq if n.startswith("sps_max_num_reorder_pics[")][-1],
                   cpb_len=length("au_cpb_removal_delay_length_minus1"))
    return exp


def main(probe, case, workdir):
    table = os.path.join(os.path.dirname(os.path.abspath(__file__)), "cases.tsv")
    codec, fps, rule, args = next(line.rstrip("\n").split("\t")[1:] for line in open(table)
                                  if line.startswith(case + "\t"))
    os.makedirs(workdir, exist_ok=True)
    path = os.path.join(workdir, f"{case}.{codec}")  # cases may run in parallel
    encoder = "x264 --quiet" if codec == "avc" else "x265 --log-level error --input"
    run("ffmpeg -loglevel error -f lavfi -i testsrc2=size=176x144 -frames:v 40 -pix_fmt yuv420p "
        f"-f rawvideo - | {encoder} - --input-res 176x144 --fps {fps} --frames 40 {args} -o {path}")
    sps_types, sei_type = ((7, 15), 6) if codec == "avc" else ((33,), 39)
    units = [u for u in trace_units(path) if u[1].get("nal_unit_type") in (*sps_types, sei_type)]
    lines = [line.split() for line in run(f"{probe} {codec} {path}").stdout.splitlines()]
    expect(len(units) == len(lines), f"{case}: {len(units)} units traced, {len(lines)} probed")
    defined, active, prev_cpb, outs = {}, None, 0, []
    for i, ((seq, f), tokens) in enumerate(zip(units, lines)):
        got = {k: int(v) for k, v in (t.split("=") for t in tokens[1:] if "=" in t)}
        where = f"{case} unit {i}: probed {' '.join(tokens)}"
        sps_id = next((v for n, v in seq if n.endswith("seq_parameter_set_id")), 0)
        if f["nal_unit_type"] in sps_types:
            if codec == "hevc" and f.get("field_seq_flag", 0):
                expect(tokens == ["SPS", "rejected"], f"{where}; field_seq_flag 1 must be rejected")
                continue
            exp = defined[sps_id] = expect_sps(codec, seq, f)
        else:
            types = [v for n, v in seq if n == "last_payload_type_byte"]
            if types.count(0) and defined:
                active = defined.get(sps_id, active)
            # Picture timing before any usable buffering period is skipped.
            exp = {"ret": 0, "bp": types.count(0), "pt": types.count(1) if active else 0}
            if exp["pt"]:
                if codec == "avc":  # a zero delay after the first picture: the previous + 2
                    cpb = f["cpb_removal_delay"] or (prev_cpb + 2 if outs else 0)
                    dpb = f["dpb_output_delay"]
                else:
                    cpb, dpb = f["au_cpb_removal_delay_minus1"] + 1, f["pic_dpb_output_delay"]
                exp.update(cpb_removal_delay=cpb, dpb_output_delay=dpb, reorder=active["reorder"],
                           units=active["num_units_in_tick"], pic_struct=f.get("pic_struct"))
                prev_cpb = cpb
                outs.append(got.get("out"))
        mismatches = {k: v for k, v in exp.items() if v is not None and got.get(k) != v}
        expect(not mismatches, f"{where}; the trace says {mismatches}")
    expect(rule == "-" or len(set(outs)) == len(outs), f"{case}: DPB output times {outs} collide")
    frames = [k * active["num_units_in_tick"] for k in range(len(outs))]  # 0..N-1 durations
    expect(rule != "frames" or sorted(outs) == frames, f"{case}: DPB output times {outs}")
    expect(outs or "hrd" not in args or "--interlace" in args, f"{case}: no picture timing parsed")
    print(f"{case}: {len(units)} SPS/SEI units, {len(outs)} picture timings as traced")


if __name__ == "__main__":
    main(*sys.argv[1:])
