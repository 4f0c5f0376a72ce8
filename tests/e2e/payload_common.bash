# Shared steps of the payload-header converter tests (DivX 3.11, SPARK, VP6,
# VP8, VP9, VC-1); sourced, not run.
source "$(dirname "${BASH_SOURCE[0]}")/lib.bash"

# convert_all MEDIA CODEC NAME [convert options...]
# Converts MEDIA into WORKDIR/NAME; stream 0 must be taken by the CODEC
# binding and every one of its packets converted. Sets OUT to its output.
convert_all() {
    local media=$1 codec=$2 name=$3
    shift 3
    convert_json "$name.json" "$media" -o "$name" "$@"
    check_report "$name.json" --input "$media" \
        --expect "0:$codec:packets > 0 and converted == packets and dropped == 0"
    OUT=$(report_output "$name.json" 0)
}




# same_frames ORIGINAL DECODABLE: decoding DECODABLE gives exactly the frames
# (per-frame MD5, in order) that decoding ORIGINAL's video stream gives.
same_frames() {
    frame_hashes "$1" >expected.md5
    frame_hashes "$2" >actual.md5
    [[ -s expected.md5 ]] || fail "$1 decodes to no frame"
    cmp -s expected.md5 actual.md5 ||
        fail "$2: $(wc -l <actual.md5) frames decoded, $(wc -l <expected.md5) expected, or some differ"
}

# make_synthetic_ivf OUT FOURCC COUNT: an IVF of COUNT frames of random bytes
# with sizes 20..400; their sizes, one a line, go to OUT.sizes.
make_synthetic_ivf() {
    python3 - "$@" <<'PY' || fail "could not write $1"
import random, struct, sys
out, fourcc, n = sys.argv[1], sys.argv[2].encode(), int(sys.argv[3])
rng = random.Random(11)
with open(out, "wb") as f, open(out + ".sizes", "w") as sizes:
    f.write(b"DKIF" + struct.pack("<HH", 0, 32) + fourcc + struct.pack("<HHIII", 176, 144, 25, 1, n) + bytes(4))
    for i in range(n):
        size = rng.randint(20, 400)
        f.write(struct.pack("<IQ", size, i) + bytes(rng.randrange(256) for _ in range(size)))
        sizes.write("%d\n" % size)
PY
}

# make_synthetic_rcv OUT COUNT: a VC-1 main-profile RCV file (SMPTE 421M
# Annex L: sequence layer, then frame layer + frame) of COUNT random frames,
# every fifth a key frame; "size,flags" per frame as ffprobe prints them go
# to OUT.packets.
make_synthetic_rcv() {
    python3 - "$@" <<'PY' || fail "could not write $1"
import random, struct, sys
out, n = sys.argv[1], int(sys.argv[2])
rng = random.Random(7)
struct_c = bytes([0x40, 0x00, 0x00, 0x00])  # PROFILE main
seq = (struct.pack("<I", n)[:3] + b"\xc5" + struct.pack("<I", 4) + struct_c +
       struct.pack("<III", 144, 176, 12) + struct.pack("<III", 0x50, 0, 25))
with open(out, "wb") as f, open(out + ".packets", "w") as packets:
    f.write(seq)
    for i in range(n):
        size = rng.randint(20, 400)
        key = i % 5 == 0
        f.write(struct.pack("<II", size | (key << 31), 0) + bytes(rng.randrange(256) for _ in range(size)))
        packets.write("%d,%s\n" % (size, "K_" if key else "__"))
PY
}

# expect_rejected FORMAT FILE MESSAGE: inspect refuses FILE with a one-line
# error containing MESSAGE (which names the fault's offset).
expect_rejected() {
    expect_exit nonzero rejected.out rejected.err "$CODECUTIL" inspect "$2" --format "$1"
    grep -qF "$3" rejected.err || fail "inspect of $2 did not report '$3': $(cat rejected.err)"
}

# corrupt IN OUT OFFSET BYTE: OUT is IN with the byte at OFFSET replaced
# (BYTE as two hex digits); a negative OFFSET instead cuts that many bytes off.
corrupt() {
    python3 - "$@" <<'PY' || fail "could not corrupt $1"
import sys
data = bytearray(open(sys.argv[1], "rb").read())
offset = int(sys.argv[3])
if offset < 0:
    del data[offset:]
else:
    data[offset] = int(sys.argv[4], 16)
open(sys.argv[2], "wb").write(data)
PY
}

# convert_both_rings MEDIA CODEC: the wrapping ring wraps inside the first
# unit. Sets OUT.
convert_both_rings() { both_rings convert_all "$1" "$2" 16000; }
