#!/usr/bin/env bash
# scripts/bench.sh report: the HTML report of the 1,000,000-message SMS recording (the one
# `scripts/bench.sh sms` makes; generated here when missing). Times, each in its own process,
# `dataparser scan REC` (the scan alone) and `dataparser report REC OUT` (the same scan, then the
# report); the writing is the difference. OUT lives under the bench folder and is removed
# afterwards. Its last line:
#   report: messages=N scan_seconds=S report_seconds=R writing_seconds=W ratio=W/S files=F bytes=B peak_rss_bytes=M
set -euo pipefail
cd "$(dirname "$0")/.."
MESSAGES=${SMS_MESSAGES:-1000000}
CONVERSATIONS=${SMS_CONVERSATIONS:-10000}
DIR=${DATAPARSER_BENCH_DIR:-${TMPDIR:-/tmp}/dataparser-bench}
RECORDING="$DIR/sms-$MESSAGES"

cmake --preset release >/dev/null
cmake --build --preset release --target generate_recording dataparser_cli >/dev/null
CLI=build/release/tools/dataparser/dataparser

if [ ! -f "$RECORDING/.complete" ]; then
  rm -rf "$RECORDING"
  mkdir -p "$DIR"
  build/release/bench/generate_recording sms --messages "$MESSAGES" \
    --conversations "$CONVERSATIONS" --seed 1 --out "$RECORDING"
  touch "$RECORDING/.complete"
fi

# The CLI's working root and the report stay out of the user's folders.
WORK=$(mktemp -d "$DIR/report-run.XXXXXX")
OUT="$WORK/out"
trap 'rm -rf "$WORK"' EXIT
export XDG_DATA_HOME="$WORK/data" XDG_CACHE_HOME="$WORK/cache"

cat $(find "$RECORDING" -name '*.json') >/dev/null  # both runs read from the page cache

# Prints "seconds peak_rss_bytes cpu_seconds" of one command (CPU: user + system, every thread;
# steadier than the wall clock when the machine is shared).
timed() {
  local stats="$WORK/time"
  local start end
  start=$(date +%s.%N)
  /usr/bin/time -f '%M %U %S' -o "$stats" "$@" >/dev/null
  end=$(date +%s.%N)
  read -r kb user system <"$stats"
  awk -v a="$start" -v b="$end" -v k="$kb" -v u="$user" -v s="$system" \
    'BEGIN { printf "%.3f %d %.2f\n", b - a, k * 1024, u + s }'
}

read -r scan_seconds scan_rss scan_cpu < <(timed "$CLI" scan "$RECORDING")
read -r report_seconds report_rss report_cpu < <(timed "$CLI" report "$RECORDING" "$OUT")
files=$(find "$OUT" -type f | wc -l)
bytes=$(du -sb "$OUT" | cut -f1)
writing=$(awk -v r="$report_seconds" -v s="$scan_seconds" 'BEGIN { printf "%.3f", r - s }')
ratio=$(awk -v w="$writing" -v s="$scan_seconds" 'BEGIN { printf "%.2f", w / s }')
cpu_ratio=$(awk -v r="$report_cpu" -v s="$scan_cpu" 'BEGIN { printf "%.2f", (r - s) / s }')
echo "scan alone: ${scan_seconds} s, peak RSS ${scan_rss} bytes"
echo "cpu: scan_cpu_seconds=$scan_cpu report_cpu_seconds=$report_cpu cpu_ratio=$cpu_ratio"
echo "report: messages=$MESSAGES scan_seconds=$scan_seconds report_seconds=$report_seconds" \
  "writing_seconds=$writing ratio=$ratio files=$files bytes=$bytes peak_rss_bytes=$report_rss"
