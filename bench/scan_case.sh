#!/usr/bin/env bash
# One scan at scale, shared by the scan benchmarks (bench/run_*.sh):
#   bench/scan_case.sh KIND SIZE [--backup] [--stat FIELD[,FIELD...]] [--unit NAME] [--records] -- GENERATOR_ARGS...
# generates a recording of KIND (generate_recording KIND GENERATOR_ARGS) once, outside the
# repository, then measures in one run (a) the floor and (b) the whole scan through
# IOSDataParser and its engine, each in its own process, and prints as its last line
#   KIND: messages=N seconds=S floor_seconds=F ratio=R input_bytes=I peak_rss_bytes=M rss_ratio=Q
# The floor is simdjson alone over every JSON byte of the recording, plus one stat per file named
# under FIELD with --stat. With --backup the recording is a device backup: the floor is one SQLite
# pass over its joined message rows and the input is every byte of the backup.
# --unit NAME reports the scan's items as NAME=N instead of its messages; --records puts
# records=SIZE before them. BENCH_RUNS=N measures N times and reports the medians.
set -euo pipefail
cd "$(dirname "$0")/.."
KIND=$1
SIZE=$2
shift 2
FLOOR=json_floor
FLOOR_ARGS=()
UNIT=messages
LEAD=""
while [ "$#" -gt 0 ]; do
  case $1 in
    --backup) FLOOR=backup_floor ;;
    --stat) FLOOR_ARGS=(--stat "$2"); shift ;;
    --unit) UNIT=$2; shift ;;
    --records) LEAD="records=$SIZE " ;;
    --) shift; break ;;
    *) echo "scan_case.sh: unknown option $1" >&2; exit 2 ;;
  esac
  shift
done
DIR=${DATAPARSER_BENCH_DIR:-${TMPDIR:-/tmp}/dataparser-bench}
RECORDING="$DIR/$KIND-$SIZE"

cmake --preset release >/dev/null
cmake --build --preset release --target generate_recording "$FLOOR" scan_bench >/dev/null
BIN=build/release/bench

if [ ! -f "$RECORDING/.complete" ]; then
  rm -rf "$RECORDING"
  mkdir -p "$DIR"
  "$BIN/generate_recording" "$KIND" "$@" --seed 1 --out "$RECORDING"
  touch "$RECORDING/.complete"
fi

# Warm the page cache (and the metadata of the files the floor stats) so that both sides read
# from memory.
if [ "$FLOOR" = backup_floor ]; then
  cat $(find "$RECORDING" -type f) >/dev/null
else
  cat $(find "$RECORDING" -name '*.json') >/dev/null
  if [ "${#FLOOR_ARGS[@]}" -gt 0 ]; then find "$RECORDING/files" -type f >/dev/null; fi
fi

field() { sed -E "s/.*[ :]$2=([^ ]+).*/\1/" <<<"$1"; }

# BENCH_RUNS=N runs the floor and the scan N times, one after the other, and keeps the median of
# each (and the largest peak): on a shared or virtual machine single runs vary widely.
RUNS=${BENCH_RUNS:-1}
floor_times=()
scan_times=()
peak=0
for ((run = 0; run < RUNS; run++)); do
  floor_line=$("$BIN/$FLOOR" "$RECORDING" "${FLOOR_ARGS[@]}")
  scan_line=$("$BIN/scan_bench" "$RECORDING")
  echo "$floor_line"
  echo "$scan_line"
  floor_times+=("$(field "$floor_line" seconds)")
  scan_times+=("$(field "$scan_line" seconds)")
  run_peak=$(field "$scan_line" peak_rss_bytes)
  if [ "$run_peak" -gt "$peak" ]; then peak=$run_peak; fi
done
median() { printf '%s\n' "$@" | sort -g | sed -n "$((($# + 1) / 2))p"; }
if [ "$FLOOR" = backup_floor ]; then
  input_bytes=$(du -sb "$RECORDING" | cut -f1)
else
  input_bytes=$(field "$floor_line" bytes)
fi
floor_seconds=$(median "${floor_times[@]}")
seconds=$(median "${scan_times[@]}")
count=$(field "$scan_line" "$([ "$UNIT" = messages ] && echo messages || echo items)")
ratio=$(awk -v a="$seconds" -v b="$floor_seconds" 'BEGIN { printf "%.2f", a / b }')
rss_ratio=$(awk -v a="$peak" -v b="$input_bytes" 'BEGIN { printf "%.2f", a / b }')
per_second=$(awk -v m="$count" -v s="$seconds" 'BEGIN { printf "%.0f", m / s }')
echo "$UNIT per second: $per_second"
echo "$KIND: $LEAD$UNIT=$count seconds=$seconds floor_seconds=$floor_seconds ratio=$ratio" \
  "input_bytes=$input_bytes peak_rss_bytes=$peak rss_ratio=$rss_ratio"
