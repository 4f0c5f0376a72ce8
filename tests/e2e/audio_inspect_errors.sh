# `codecutil inspect --format adts|packets` on damaged streams: each fault is
# reported in one line naming the offset of the frame or packet at fault, and
# the tool exits 1. The streams are real converter output, damaged in place.
source "$(dirname "$0")/audio_common.bash"

# patch SRC DST OFFSET HEX: DST is SRC with the bytes HEX written at OFFSET.
patch() {
    local src=$1 dst=$2 offset=$3 hex=$4 escaped=""
    [[ $src -ef $dst ]] || cp "$src" "$dst"
    while [[ -n $hex ]]; do
        escaped+="\\x${hex:0:2}"
        hex=${hex:2}
    done
    printf '%b' "$escaped" | dd of="$dst" bs=1 seek="$offset" conv=notrunc status=none ||
        fail "cannot patch $src"
}

# cut SRC DST LENGTH: the first LENGTH bytes of SRC.
cut() { head -c "$3" "$1" >"$2"; }

# offset_of LISTING KIND N: offset of frame/packet N in an inspect listing.
offset_of() { awk -v kind="$2" -v n="$3" '$1 == kind && $2 == n { print $4 }' "$1"; }

# expect_fault FORMAT FILE PATTERN: inspect fails with exit status 1 and one
# stderr line matching PATTERN.
expect_fault() {
    local format=$1 file=$2 pattern=$3
    expect_exit 1 fault.out fault.err "$CODECUTIL" inspect "$file" --format "$format"
    [[ $(wc -l <fault.err) -eq 1 ]] || fail "$file: expected one error line, got: $(cat fault.err)"
    grep -Eq "$pattern" fault.err || fail "$file: error '$(cat fault.err)' does not match '$pattern'"
}

# ADTS from AAC-LC stereo: every frame 7-byte header, no CRC.
make_audio a.m4a 44100 2 -c:a aac -b:a 64k
convert_audio a.m4a aac conv
adts=$OUT
"$CODECUTIL" inspect "$adts" --format adts >adts.txt || fail "valid ADTS refused"
size=$(stat -c %s "$adts")
f1=$(offset_of adts.txt frame 1)
f2=$(offset_of adts.txt frame 2)
last=$(offset_of adts.txt frame $((PACKETS - 1)))

cut "$adts" short.aac $((size - 3))
expect_fault adts short.aac "^adts: offset $last: aac_frame_length [0-9]+ runs past the end \([0-9]+ bytes left\)$"
cut "$adts" stub.aac $((last + 4))
expect_fault adts stub.aac "^adts: offset $last: truncated ADTS header: 4 bytes left, 7 needed$"
patch "$adts" nosync.aac "$f2" 00
expect_fault adts nosync.aac "^adts: offset $f2: no ADTS syncword: 00 F1$"
# Byte 2 of frame 1: profile 1, sampling index 13, channel bit 0.
patch "$adts" rate13.aac $((f1 + 2)) 74
expect_fault adts rate13.aac "^adts: offset $f1: reserved sampling_frequency_index 13$"
# Byte 3 of frame 2: channel configuration 1 instead of 2, length kept.
byte3=$(od -An -tx1 -j $((f2 + 3)) -N1 "$adts" | tr -d ' ')
patch "$adts" channels.aac $((f2 + 3)) "$(printf %02x $(((0x$byte3 & 0x3F) | 0x40)))"
# A configuration change is listed and the frames go on; only extraction,
# which writes one configuration, refuses it.
"$CODECUTIL" inspect channels.aac --format adts >changed.txt || fail "a header change was refused"
grep -q "^change offset $f2 fixed header" changed.txt || fail "header change not listed: $(cat changed.txt)"
grep -q "^frames $PACKETS " changed.txt || fail "listing stopped at the change: $(tail -1 changed.txt)"
expect_exit 1 fault.out fault.err "$CODECUTIL" inspect channels.aac --format adts --extract x
grep -q "^adts: offset $f2: fixed header changed" fault.err || fail "extraction: $(cat fault.err)"
# Frame 0 claims 6 bytes.
patch "$adts" tiny.aac 3 80000000
expect_fault adts tiny.aac "^adts: offset 0: aac_frame_length [0-9]+ is shorter than its 7-byte header$"
: >empty.bin
expect_fault adts empty.bin "^adts: empty stream"

# Packet streams from Opus in Ogg and Vorbis in WebM.
make_audio o.ogg 48000 1 -c:a libopus -b:a 24k
convert_audio o.ogg opus opus
opus=$OUT
"$CODECUTIL" inspect "$opus" --format packets >opus.txt || fail "valid Opus packets refused"
size=$(stat -c %s "$opus")
p1=$(offset_of opus.txt packet 1)
p2=$(offset_of opus.txt packet 2)
p3=$(offset_of opus.txt packet 3)
last=$(offset_of opus.txt packet "$PACKETS")

cut "$opus" short.pkt $((size - 1))
expect_fault packets short.pkt "^packets: offset $last: packet of [0-9]+ bytes runs past the end \([0-9]+ bytes left\)$"
cut "$opus" stub.pkt $((last + 43))
expect_fault packets stub.pkt "^packets: offset $last: truncated packet header: 43 bytes left, 44 needed$"
patch "$opus" sync.pkt $((p2 + 3)) 2d
expect_fault packets sync.pkt "^packets: offset $p2: sync text is not \"gst_opus\" zero-padded to 16 bytes$"
patch "$opus" bos.pkt $((p3 + 23)) 01
expect_fault packets bos.pkt "^packets: offset $p3: b_o_s set on packet 3; only the first may carry it$"
patch "$opus" eos.pkt $((p1 + 27)) 01
expect_fault packets eos.pkt "^packets: offset $p1: e_o_s set on packet 1, which is not the last$"
patch "$opus" granule.pkt $((p1 + 35)) 01
expect_fault packets granule.pkt "^packets: offset $p1: granulepos is not 0$"
patch "$opus" unknown.pkt 0 78
expect_fault packets unknown.pkt "^packets: offset 0: unknown sync text"
# The OpusHead packet cut to 10 bytes: its magic is there, its fields not.
patch "$opus" shorthead.pkt 16 0000000a
expect_fault packets shorthead.pkt "^packets: offset 0: OpusHead of 10 bytes, 19 needed$"

# Without its OpusHead packet the stream is still well formed, but there is
# no codec data to extract.
tail -c +$((p1 + 1)) "$opus" >headless.pkt
"$CODECUTIL" inspect headless.pkt --format packets >/dev/null || fail "headless stream refused"
expect_exit 1 fault.out fault.err "$CODECUTIL" inspect headless.pkt --format packets --extract h
grep -q "^packets: cannot extract: no OpusHead packet in the stream$" fault.err ||
    fail "headless extraction: $(cat fault.err)"

make_audio v.webm 48000 1 -c:a libvorbis -q:a 0
convert_audio v.webm vorbis vorbis
vorbis=$OUT
"$CODECUTIL" inspect "$vorbis" --format packets >vorbis.txt || fail "valid Vorbis packets refused"
a0=$(offset_of vorbis.txt packet 3)
# An audio packet whose type bit is set, without the "vorbis" signature.
patch "$vorbis" type.pkt $((a0 + 44)) 07
expect_fault packets type.pkt "^packets: offset $a0: Vorbis packet type 7 is neither audio nor a header$"
echo "ok: audio inspect errors"
