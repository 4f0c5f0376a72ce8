"""Checks a `codecutil convert --json` report.

Always: stdout held exactly one JSON object; its keys are input and streams;
each stream has exactly the documented keys with integer counts;
converted + passed_through + dropped == packets; bytes_out is the size of the
output file, or with --failed (a run that exited non-zero) no output file
exists, not even a partial one.

    check_report.py REPORT [--input PATH] [--streams N] [--failed]
                    [--expect INDEX:CODEC:PYTHON_EXPR]...

--expect requires stream INDEX to be listed with codec CODEC and the
expression (over that stream's fields, e.g. "converted == packets and
dropped == 0") to hold.
"""
import argparse
import json
import os
import sys

STREAM_KEYS = ["index", "codec", "output", "packets", "converted", "passed_through",
               "dropped", "param_changes", "bytes_in", "bytes_out"]
COUNT_KEYS = ["index", "packets", "converted", "passed_through", "dropped", "param_changes",
              "bytes_in", "bytes_out"]


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("report")
    ap.add_argument("--input")
    ap.add_argument("--streams", type=int)
    ap.add_argument("--expect", action="append", default=[])
    ap.add_argument("--failed", action="store_true")
    args = ap.parse_args()

    text = open(args.report).read()
    errors = []
    try:
        decoder = json.JSONDecoder()
        report, end = decoder.raw_decode(text.lstrip())
        if text.lstrip()[end:].strip():
            errors.append("more than one JSON value on stdout")
    except ValueError as e:
        sys.exit("%s: not JSON (%s): %r" % (args.report, e, text[:200]))

    if not isinstance(report, dict) or sorted(report) != ["input", "streams"]:
        sys.exit("%s: top level must be {input, streams}, got %r" % (args.report, report))
    if args.input is not None and report["input"] != args.input:
        errors.append("input is %r, expected %r" % (report["input"], args.input))
    streams = report["streams"]
    if args.streams is not None and len(streams) != args.streams:
        errors.append("%d streams listed, expected %d" % (len(streams), args.streams))

    by_index = {}
    for s in streams:
        if sorted(s) != sorted(STREAM_KEYS):
            errors.append("stream keys %s, expected %s" % (sorted(s), sorted(STREAM_KEYS)))
            continue
        tag = "stream %s (%s)" % (s["index"], s["codec"])
        for k in COUNT_KEYS:
            if not isinstance(s[k], int) or isinstance(s[k], bool) or s[k] < 0:
                errors.append("%s: %s is not a count: %r" % (tag, k, s[k]))
        if s["converted"] + s["passed_through"] + s["dropped"] != s["packets"]:
            errors.append("%s: converted %d + passed_through %d + dropped %d != packets %d"
                          % (tag, s["converted"], s["passed_through"], s["dropped"], s["packets"]))
        if args.failed:
            if os.path.exists(s["output"]):
                errors.append("%s: a failed run left %s" % (tag, s["output"]))
        elif not os.path.isfile(s["output"]):
            errors.append("%s: output %s does not exist" % (tag, s["output"]))
        elif os.path.getsize(s["output"]) != s["bytes_out"]:
            errors.append("%s: bytes_out %d but %s has %d bytes"
                          % (tag, s["bytes_out"], s["output"], os.path.getsize(s["output"])))
        if s["index"] in by_index:
            errors.append("%s listed twice" % tag)
        by_index[s["index"]] = s

    for e in args.expect:
        index, codec, expr = e.split(":", 2)
        s = by_index.get(int(index))
        if s is None:
            errors.append("stream %s not listed" % index)
            continue
        if s["codec"] != codec:
            errors.append("stream %s is %r, expected %r" % (index, s["codec"], codec))
        if not eval(expr, {}, dict(s)):
            errors.append("stream %s: %s does not hold for %s" % (index, expr, json.dumps(s)))

    for e in errors:
        print("%s: %s" % (args.report, e), file=sys.stderr)
    sys.exit(1 if errors else 0)


if __name__ == "__main__":
    main()
