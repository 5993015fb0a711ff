#!/usr/bin/env bash
# The main job: builds the release tree and runs the dataparser command-line host.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
cmake --preset release >/dev/null
cmake --build --preset release
build/release/tools/dataparser/dataparser --version
