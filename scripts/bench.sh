#!/usr/bin/env bash
# Runs one benchmark by name: scripts/bench.sh <name> [args...] runs bench/run_<name>.sh.
# Each benchmark prints its figures and ends with one summary line of its own.
set -euo pipefail
cd "$(dirname "$0")/.."
name=${1:-}
if [ -z "$name" ] || [ ! -x "bench/run_$name.sh" ]; then
  echo "usage: scripts/bench.sh <name>; available:" \
    "$(ls bench/run_*.sh 2>/dev/null | sed -E 's|bench/run_(.*)\.sh|\1|' | tr '\n' ' ')" >&2
  exit 2
fi
shift
scripts/setup.sh
exec "bench/run_$name.sh" "$@"
