#!/usr/bin/env bash
# scripts/bench.sh backup: a device backup's messages at scale. Generates a backup whose sms.db
# holds 1,000,000 messages once (outside the repository), then measures in one run (a) the
# floor, one SQLite pass over the same joined message rows, and (b) the whole scan through
# IOSDataParser and the backup engine (database, JSON files, parser, lists), each in its own
# process, and prints
#   backup: messages=N seconds=S floor_seconds=F ratio=R input_bytes=I peak_rss_bytes=M rss_ratio=Q
set -euo pipefail
cd "$(dirname "$0")/.."
MESSAGES=${BACKUP_MESSAGES:-1000000}
CONVERSATIONS=${BACKUP_CONVERSATIONS:-10000}
DIR=${DATAPARSER_BENCH_DIR:-${TMPDIR:-/tmp}/dataparser-bench}
BACKUP="$DIR/backup-$MESSAGES"

cmake --preset release >/dev/null
cmake --build --preset release --target generate_recording backup_floor scan_bench >/dev/null
BIN=build/release/bench

if [ ! -f "$BACKUP/.complete" ]; then
  rm -rf "$BACKUP"
  mkdir -p "$DIR"
  "$BIN/generate_recording" backup --messages "$MESSAGES" --conversations "$CONVERSATIONS" \
    --seed 1 --out "$BACKUP"
  touch "$BACKUP/.complete"
fi

# Warm the page cache so that both sides read from memory.
cat $(find "$BACKUP" -type f) >/dev/null

floor_line=$("$BIN/backup_floor" "$BACKUP")
scan_line=$("$BIN/scan_bench" "$BACKUP")
echo "$floor_line"
echo "$scan_line"

field() { sed -E "s/.*[ :]$2=([^ ]+).*/\1/" <<<"$1"; }
input_bytes=$(du -sb "$BACKUP" | cut -f1)
floor_seconds=$(field "$floor_line" seconds)
seconds=$(field "$scan_line" seconds)
messages=$(field "$scan_line" messages)
peak=$(field "$scan_line" peak_rss_bytes)
ratio=$(awk -v a="$seconds" -v b="$floor_seconds" 'BEGIN { printf "%.2f", a / b }')
rss_ratio=$(awk -v a="$peak" -v b="$input_bytes" 'BEGIN { printf "%.2f", a / b }')
per_second=$(awk -v m="$messages" -v s="$seconds" 'BEGIN { printf "%.0f", m / s }')
echo "messages per second: $per_second"
echo "backup: messages=$messages seconds=$seconds floor_seconds=$floor_seconds ratio=$ratio" \
  "input_bytes=$input_bytes peak_rss_bytes=$peak rss_ratio=$rss_ratio"
