#!/usr/bin/env bash
# A chat scan at scale, shared by the scan benchmarks: bench/scan_case.sh KIND MESSAGES
# CONVERSATIONS generates a recording of KIND once (outside the repository), then measures in one
# run (a) the floor, simdjson alone over every JSON byte of the recording, and (b) the whole scan
# through IOSDataParser and the replay engine, each in its own process, and prints
#   KIND: messages=N seconds=S floor_seconds=F ratio=R input_bytes=I peak_rss_bytes=M rss_ratio=Q
set -euo pipefail
cd "$(dirname "$0")/.."
KIND=$1
MESSAGES=$2
CONVERSATIONS=$3
DIR=${DATAPARSER_BENCH_DIR:-${TMPDIR:-/tmp}/dataparser-bench}
RECORDING="$DIR/$KIND-$MESSAGES"

cmake --preset release >/dev/null
cmake --build --preset release --target generate_recording json_floor scan_bench >/dev/null
BIN=build/release/bench

if [ ! -f "$RECORDING/.complete" ]; then
  rm -rf "$RECORDING"
  mkdir -p "$DIR"
  "$BIN/generate_recording" "$KIND" --messages "$MESSAGES" --conversations "$CONVERSATIONS" \
    --seed 1 --out "$RECORDING"
  touch "$RECORDING/.complete"
fi

# Warm the page cache so that both sides read from memory.
cat $(find "$RECORDING" -name '*.json') >/dev/null

floor_line=$("$BIN/json_floor" "$RECORDING")
scan_line=$("$BIN/scan_bench" "$RECORDING")
echo "$floor_line"
echo "$scan_line"

field() { sed -E "s/.*[ :]$2=([^ ]+).*/\1/" <<<"$1"; }
input_bytes=$(field "$floor_line" bytes)
floor_seconds=$(field "$floor_line" seconds)
seconds=$(field "$scan_line" seconds)
messages=$(field "$scan_line" messages)
peak=$(field "$scan_line" peak_rss_bytes)
ratio=$(awk -v a="$seconds" -v b="$floor_seconds" 'BEGIN { printf "%.2f", a / b }')
rss_ratio=$(awk -v a="$peak" -v b="$input_bytes" 'BEGIN { printf "%.2f", a / b }')
per_second=$(awk -v m="$messages" -v s="$seconds" 'BEGIN { printf "%.0f", m / s }')
echo "messages per second: $per_second"
echo "$KIND: messages=$messages seconds=$seconds floor_seconds=$floor_seconds ratio=$ratio" \
  "input_bytes=$input_bytes peak_rss_bytes=$peak rss_ratio=$rss_ratio"
