# `codecutil split` on dual-layer H.265 built from two x265 encodes (HRD,
# buffering period and picture timing SEI, AUDs): the same cases as H.264.
source "$(dirname "$0")/split_common.bash"
run_split_cases hevc h265
echo "ok: split_hevc"
