# `codecutil split` on dual-layer H.264 built from two x264 encodes (NAL HRD,
# picture timing, AUDs): start-code and length-prefixed input, with and
# without delimiters, in per-access-unit and 64 KiB pushes, with B-pictures.
source "$(dirname "$0")/split_common.bash"
run_split_cases avc h264
echo "ok: split_avc"
