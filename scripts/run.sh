#!/usr/bin/env bash
# The main job: builds the release tree and scans the bundled sample recording with the
# command-line host, printing its summary and writing the JSON export to build/sample-export.json.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
cmake --preset release >/dev/null
cmake --build --preset release
build/release/tools/dataparser/dataparser scan samples/sms-demo --json build/sample-export.json
echo "export written to build/sample-export.json"
