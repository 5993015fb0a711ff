#!/usr/bin/env bash
# Download throughput: a 1 GiB file from a loopback server, fetched by `dataparser download` and
# by the curl command-line tool, in alternating rounds (best time of each counts). The data
# lives outside the repository, in ${TMPDIR:-/tmp}/dataparser-bench (the 1 GiB source is kept
# for later runs). Last line:
#   download: bytes=N ours_seconds=A curl_seconds=B ratio=R      (R = B / A; 1.0 = as fast as curl)
set -euo pipefail
cd "$(dirname "$0")/.."

rounds=${DOWNLOAD_BENCH_ROUNDS:-5}
size=$((1 << 30))
work="${TMPDIR:-/tmp}/dataparser-bench"
source_file="$work/source-1GiB.bin"
out="$work/out"

cmake --preset release >/dev/null
cmake --build --preset release --target dataparser_cli dataparser_http_file_server >/dev/null
cli=build/release/tools/dataparser/dataparser
server_bin=build/release/bench/dataparser_http_file_server

mkdir -p "$work" "$out"
if [ ! -f "$source_file" ] || [ "$(stat -c %s "$source_file")" -ne "$size" ]; then
  echo "generating $source_file" >&2
  # A keyed stream cipher over zeros: incompressible bytes, fast. openssl ends by SIGPIPE.
  (openssl enc -aes-128-ctr -pass pass:dataparser-bench -nosalt -pbkdf2 </dev/zero 2>/dev/null ||
    true) | head -c "$size" >"$source_file.tmp"
  mv "$source_file.tmp" "$source_file"
fi

"$server_bin" "$source_file" >"$work/server.out" &
server_pid=$!
cleanup() {
  kill "$server_pid" 2>/dev/null || true
  wait "$server_pid" 2>/dev/null || true
  rm -rf "$out" "$work/home"
}
trap cleanup EXIT
for _ in $(seq 100); do
  grep -q '^port ' "$work/server.out" 2>/dev/null && break
  sleep 0.05
done
port=$(sed -n 's/^port //p' "$work/server.out")
[ -n "$port" ] || { echo "the file server did not start" >&2; exit 1; }
url="http://127.0.0.1:$port/source-1GiB.bin"

now() { date +%s%N; }
seconds() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.3f", (b - a) / 1e9 }'; }
check_size() {
  local got
  got=$(stat -c %s "$1")
  [ "$got" -eq "$size" ] || { echo "$1: $got bytes, expected $size" >&2; exit 1; }
}

# The CLI's caches and logs stay inside the benchmark folder, on the destination's file system.
export XDG_CACHE_HOME="$work/home/cache" XDG_DATA_HOME="$work/home/data"
best_ours=""
best_curl=""
for round in $(seq "$rounds"); do
  rm -f "$out/ours.bin" "$out/curl.bin"
  sync
  start=$(now)
  "$cli" download "$url" "$out/ours.bin" >/dev/null
  ours=$(seconds "$start" "$(now)")
  check_size "$out/ours.bin"
  rm -f "$out/ours.bin"
  sync

  start=$(now)
  curl -s -o "$out/curl.bin" "$url"
  theirs=$(seconds "$start" "$(now)")
  check_size "$out/curl.bin"
  rm -f "$out/curl.bin"

  echo "round $round: ours ${ours}s curl ${theirs}s"
  best_ours=$(awk -v a="$ours" -v b="${best_ours:-$ours}" 'BEGIN { print (a < b ? a : b) }')
  best_curl=$(awk -v a="$theirs" -v b="${best_curl:-$theirs}" 'BEGIN { print (a < b ? a : b) }')
done

ratio=$(awk -v a="$best_ours" -v b="$best_curl" 'BEGIN { printf "%.3f", b / a }')
echo "download: bytes=$size ours_seconds=$best_ours curl_seconds=$best_curl ratio=$ratio"
