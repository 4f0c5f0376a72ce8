#!/usr/bin/env bash
# Regenerates the bundled samples from FFmpeg's synthetic sources and real
# encoders. Each file is short (2 s) and small (320x180) so that the set stays
# well under 1 MB; the audio tracks show how `codecutil convert` treats
# streams beside the video one.
#
#   h264_x264_bframes.mp4   H.264 High (x264, 3 B-frames, 2 slices/picture) + AAC-LC
#   h265_x265_bframes.mkv   H.265 Main (x265, 3 B-frames) + Opus
#   mpeg4_bframes.avi       MPEG-4 Part 2 ASP (2 B-frames) + MP3
#
# Usage: samples/make_samples.sh [OUTPUT_DIR]   (default: this script's folder)
set -euo pipefail

out=${1:-$(dirname "$0")}
mkdir -p "$out"

video="testsrc2=size=320x180:rate=25:duration=2"
audio="sine=frequency=440:sample_rate=48000:duration=2"
common=(-hide_banner -loglevel error -y)
bitexact=(-fflags +bitexact -map_metadata -1)

ffmpeg "${common[@]}" -f lavfi -i "$video" -f lavfi -i "$audio" \
    -c:v libx264 -preset medium -profile:v high -pix_fmt yuv420p -g 25 -bf 3 \
    -x264-params slices=2:threads=1 -crf 28 \
    -c:a aac -b:a 64k -ac 2 -flags:v +bitexact -flags:a +bitexact \
    "${bitexact[@]}" "$out/h264_x264_bframes.mp4"

ffmpeg "${common[@]}" -f lavfi -i "$video" -f lavfi -i "$audio" \
    -c:v libx265 -preset medium -pix_fmt yuv420p -g 25 -crf 30 \
    -x265-params bframes=3:pools=1:frame-threads=1:log-level=error \
    -c:a libopus -b:a 48k -ac 2 \
    "${bitexact[@]}" "$out/h265_x265_bframes.mkv"

ffmpeg "${common[@]}" -f lavfi -i "$video" -f lavfi -i "$audio" \
    -c:v mpeg4 -bf 2 -q:v 5 -g 25 -flags:v +bitexact \
    -c:a libmp3lame -b:a 64k -ac 2 \
    "${bitexact[@]}" "$out/mpeg4_bframes.avi"
