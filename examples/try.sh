#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# try.sh SAMPLES BIN [LIBRARY]: the built examples in BIN make a photo, find its video again and edit it; with the shared
# library, so does the one in Python. Their stderr is the library's log.
set -euo pipefail
samples=$1 bin=$2 library=${3:-}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
photo=$work/photo.jpg

# run command... : shows what it said when it fails.
run() {
    "$@" >"$work/out" 2>"$work/log" || { tail -3 "$work/log" && echo "failed: $*" && exit 1; }
}
run "$bin/add" "$samples/still.jpg" "$samples/clip.mp4" "$photo"
run "$bin/edit_trailer" "$photo" 2900 Note "a note"
run "$bin/edit_xmp" "$photo" http://ns.adobe.com/tiff/1.0/ tiff:Model "A camera"
run "$bin/read" "$photo"
grep -q 'record 2900 Note: 6 bytes' "$work/out"
grep -q 'tiff:Model = A camera' "$work/out"
run "$bin/video_of" "$photo" "$work/clip.mp4"
cmp <(head -c "$(stat -c %s "$samples/clip.mp4")" "$work/clip.mp4") "$samples/clip.mp4"
[ -n "$library" ] || exit 0

export METADATA_UTILS=$library
folder=$(dirname "${BASH_SOURCE[0]}")/folder.py
mkdir "$work/photos" "$work/videos"
run python3 "$folder" add "$samples/still.jpg" "$samples/clip.mp4" "$work/photos/a.jpg"
cp "$samples/still.jpg" "$work/photos/b.jpg"
echo text >"$work/photos/c.txt"
run python3 "$folder" info "$work/photos"
grep -q '^a.jpg: .* bytes at ' "$work/out"
run python3 "$folder" extract "$work/photos" "$work/videos"
grep -q '^b.jpg: no video' "$work/out"
grep -q '^c.txt: .*not supported' "$work/out"
cmp "$work/videos/a.jpg.mp4" "$samples/clip.mp4"
