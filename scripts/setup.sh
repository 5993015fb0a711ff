#!/usr/bin/env bash
# Installs the Debian packages that building, testing, benchmarking and fuzzing need.
# Idempotent: only missing packages are installed, so a warm machine pays one dpkg query.
set -euo pipefail

PACKAGES=(
  cmake ninja-build g++ pkg-config ccache clang libclang-rt-14-dev clang-format curl
  libsimdjson-dev rapidjson-dev libpcre2-dev libutf8proc-dev libcurl4-openssl-dev libssl-dev
  libplist-dev libvips-dev libxml2-dev libspdlog-dev libfmt-dev libcli11-dev libsqlite3-dev
  libgtest-dev libgmock-dev libbenchmark-dev libcpp-httplib-dev chromium
)

missing=()
for package in "${PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$package")
  fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "setup: installing ${missing[*]}" >&2
sudo=()
if [ "$(id -u)" -ne 0 ]; then sudo=(sudo); fi
"${sudo[@]}" apt-get update -qq
DEBIAN_FRONTEND=noninteractive "${sudo[@]}" apt-get install -y -qq "${missing[@]}" >/dev/null
