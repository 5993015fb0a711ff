#!/usr/bin/env bash
# scripts/bench.sh photos: the photo-library scan at scale. Generates a recording of 100,000
# photo records naming files on disk once (outside the repository), then measures in one run
# (a) the floor, simdjson alone over every JSON byte of the recording plus one stat per named
# file, and (b) the whole scan through IOSDataParser and the replay engine, each in its own
# process, and prints
#   photos: records=N seconds=S floor_seconds=F ratio=R input_bytes=I peak_rss_bytes=M rss_ratio=Q
set -euo pipefail
cd "$(dirname "$0")/.."
PHOTOS=${PHOTOS_RECORDS:-100000}
DIR=${DATAPARSER_BENCH_DIR:-${TMPDIR:-/tmp}/dataparser-bench}
RECORDING="$DIR/photos-$PHOTOS"

cmake --preset release >/dev/null
cmake --build --preset release --target generate_recording json_floor scan_bench >/dev/null
BIN=build/release/bench

if [ ! -f "$RECORDING/.complete" ]; then
  rm -rf "$RECORDING"
  mkdir -p "$DIR"
  "$BIN/generate_recording" photos --photos "$PHOTOS" --seed 1 --out "$RECORDING"
  touch "$RECORDING/.complete"
fi

# Warm the page cache and the file-system metadata so that both sides read from memory.
cat $(find "$RECORDING" -name '*.json') >/dev/null
find "$RECORDING/files" -type f >/dev/null

floor_line=$("$BIN/json_floor" "$RECORDING" --stat origin_file_path)
scan_line=$("$BIN/scan_bench" "$RECORDING")
echo "$floor_line"
echo "$scan_line"

field() { sed -E "s/.*[ :]$2=([^ ]+).*/\1/" <<<"$1"; }
input_bytes=$(field "$floor_line" bytes)
floor_seconds=$(field "$floor_line" seconds)
seconds=$(field "$scan_line" seconds)
items=$(field "$scan_line" items)
peak=$(field "$scan_line" peak_rss_bytes)
ratio=$(awk -v a="$seconds" -v b="$floor_seconds" 'BEGIN { printf "%.2f", a / b }')
rss_ratio=$(awk -v a="$peak" -v b="$input_bytes" 'BEGIN { printf "%.2f", a / b }')
echo "photos: records=$PHOTOS items=$items seconds=$seconds floor_seconds=$floor_seconds" \
  "ratio=$ratio input_bytes=$input_bytes peak_rss_bytes=$peak rss_ratio=$rss_ratio"
