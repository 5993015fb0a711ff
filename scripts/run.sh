#!/usr/bin/env bash
# The main job: builds the release tree and scans every bundled sample recording under samples/
# with the command-line host, printing each summary and writing each JSON export to
# build/sample-exports/NAME.json and each HTML report to build/sample-reports/NAME/index.html. A
# sample whose folder name starts with "android-" is replayed through the Android path (--android).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
cmake --preset release >/dev/null
cmake --build --preset release
cli=build/release/tools/dataparser/dataparser
mkdir -p build/sample-exports
for sample in samples/*/; do
  name=$(basename "$sample")
  [ -d "$sample/stream" ] || continue
  args=(scan "$sample" --json "build/sample-exports/$name.json" --report "build/sample-reports/$name")
  case "$name" in android-*) args+=(--android) ;; esac
  echo "== $name"
  "$cli" "${args[@]}"
  echo "export written to build/sample-exports/$name.json"
done
# The downloaded iCloud account sample has no stream/ folder: it is read by the icloud command.
echo "== icloud-demo"
"$cli" icloud samples/icloud-demo --json build/sample-exports/icloud-demo.json
echo "export written to build/sample-exports/icloud-demo.json"
