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
