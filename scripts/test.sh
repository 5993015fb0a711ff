#!/usr/bin/env bash
# Builds the library and the whole test suite with AddressSanitizer and UndefinedBehaviorSanitizer
# in build/asan and runs it through ctest, after checking that every include points down a layer
# and that the plain Release build is warning-free.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/check_layers.sh
scripts/setup.sh
# A plain optimised build (the one users and packagers make) with warnings as errors, so that a
# warning only -O3 finds cannot come back; the library and the CLI only, to keep CI short.
cmake -S . -B build/release-check -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DDATAPARSER_BUILD_TESTS=OFF -DDATAPARSER_WARNINGS_AS_ERRORS=ON >/dev/null
cmake --build build/release-check --target dataparser dataparser_cli
cmake --preset asan >/dev/null
cmake --build --preset asan
ctest --preset asan
