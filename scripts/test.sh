#!/usr/bin/env bash
# Builds the library and the whole test suite with AddressSanitizer and UndefinedBehaviorSanitizer
# in build/asan and runs it through ctest, after checking that every include points down a layer.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/check_layers.sh
scripts/setup.sh
cmake --preset asan >/dev/null
cmake --build --preset asan
ctest --preset asan
