#!/usr/bin/env bash
# Builds the release preset and runs the helper micro benchmarks; extra arguments go to
# Google Benchmark (e.g. --benchmark_filter=Date).
set -euo pipefail
cd "$(dirname "$0")/.."
cmake --preset release >/dev/null
cmake --build --preset release --target dataparser_microbench >/dev/null
build/release/bench/dataparser_microbench "$@"
echo "micro: done"
