#!/usr/bin/env bash
# Runs the libFuzzer targets: scripts/fuzz.sh [SECONDS] [TARGET...]
#
# Builds the `fuzz` preset (clang, AddressSanitizer + UndefinedBehaviorSanitizer) and runs each
# target (default: every fuzz/fuzz_*.cpp) for SECONDS (default 600), two at a time, each on a
# fresh copy of its seed corpus fuzz/corpus/<target>/ (and with fuzz/<target>.dict when present);
# fuzz_parsers writes its own seeds first, from samples/ and tests/fixtures.
# Logs go to build/fuzz/logs/<target>.log, crash/leak/timeout inputs to
# build/fuzz/artifacts/<target>/. Prints one line per target and exits non-zero when any target
# crashed.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-600}
if ! [[ "$seconds" =~ ^[0-9]+$ ]] || [ "$seconds" -eq 0 ]; then
  echo "usage: scripts/fuzz.sh [SECONDS] [TARGET...]" >&2
  exit 2
fi
shift || true
targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  for source in fuzz/fuzz_*.cpp; do targets+=("$(basename "$source" .cpp)"); done
fi
for target in "${targets[@]}"; do
  if [ ! -f "fuzz/$target.cpp" ]; then
    echo "fuzz: unknown target $target; available:" \
      "$(ls fuzz/fuzz_*.cpp | xargs -n1 basename | sed 's/\.cpp$//' | tr '\n' ' ')" >&2
    exit 2
  fi
done

scripts/setup.sh
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz --target "${targets[@]}"

out=build/fuzz
mkdir -p "$out/logs"
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}

run_target() {
  local target=$1
  local corpus="$out/corpus/$target" artifacts="$out/artifacts/$target"
  rm -rf "$corpus" "$artifacts"
  mkdir -p "$corpus" "$artifacts"
  if [ -d "fuzz/corpus/$target" ]; then cp -R "fuzz/corpus/$target/." "$corpus/"; fi
  if [ "$target" = fuzz_parsers ]; then
    # Seeds come from every sample recording and the test fixtures, so new parsers bring theirs.
    FUZZ_PARSERS_SEEDS="$corpus" FUZZ_PARSERS_SOURCES="samples:tests/fixtures" \
      "$out/fuzz/$target" >"$out/logs/$target.seeds.log" 2>&1 || true
  fi
  local options=(-max_total_time="$seconds" -rss_limit_mb=4096 -timeout=30 -print_final_stats=1
                 -artifact_prefix="$artifacts/")
  if [ -f "fuzz/$target.dict" ]; then options+=(-dict="fuzz/$target.dict"); fi
  "$out/fuzz/$target" "${options[@]}" "$corpus" >"$out/logs/$target.log" 2>&1 || true
}

summary() {
  local target=$1 log="$out/logs/$1.log"
  local runs elapsed crashes
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n1)
  [ -n "$runs" ] || runs=$(sed -n 's/^#\([0-9]*\).*/\1/p' "$log" | tail -n1)
  elapsed=$(sed -n 's/^Done [0-9]* runs in \([0-9]*\) second.*/\1/p' "$log" | tail -n1)
  [ -n "$elapsed" ] || elapsed=$(cat "$out/logs/$target.seconds" 2>/dev/null || echo 0)
  crashes=$(find "$out/artifacts/$target" -type f | wc -l)
  echo "fuzz $target: runs=${runs:-0} seconds=$elapsed crashes=$crashes"
  [ "$crashes" -eq 0 ]
}

# Two targets at a time by default (the machine has two cores); FUZZ_JOBS changes it.
pids=()
for target in "${targets[@]}"; do
  while [ "$(jobs -rp | wc -l)" -ge "${FUZZ_JOBS:-2}" ]; do wait -n || true; done
  (
    start=$(date +%s)
    run_target "$target"
    echo $(($(date +%s) - start)) >"$out/logs/$target.seconds"
  ) &
  pids+=($!)
done
wait "${pids[@]}" || true

status=0
for target in "${targets[@]}"; do summary "$target" || status=1; done
exit $status
