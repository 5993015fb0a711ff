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
# A program outside the project builds against an install prefix, through find_package and
# through pkg-config as the README writes it.
prefix="$PWD/build/consumer/prefix"
rm -rf build/consumer
cmake --install build/release-check --prefix "$prefix" >/dev/null
cmake -S tests/consumer -B build/consumer/cmake -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build build/consumer/cmake
build/consumer/cmake/consumer
# shellcheck disable=SC2046
c++ -std=c++20 tests/consumer/main.cpp -o build/consumer/pkg-config-consumer \
  $(PKG_CONFIG_PATH="$prefix/lib/pkgconfig:$prefix/lib/x86_64-linux-gnu/pkgconfig" \
    pkg-config --cflags --libs dataparser)
build/consumer/pkg-config-consumer
cmake --preset asan >/dev/null
cmake --build --preset asan
ctest --preset asan
