#!/usr/bin/env bash
# Builds the library and the whole test suite with AddressSanitizer and UndefinedBehaviorSanitizer
# in build/asan and runs it through ctest.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
cmake --preset asan >/dev/null
cmake --build --preset asan
ctest --preset asan
