#!/bin/sh
# Fails when library code includes a header of a higher layer. The layers, lowest first:
#   util <- net <- model <- parsers <- core <- engine, icloud <- report
# A file may include its own module and any lower one; engine and icloud sit side by side and
# do not include each other. Tests (*_test.cpp) may use a higher layer's real implementation as
# their fixture (the coordinator's tests drive the replay engine), so they are not checked.
# Usage: scripts/check_layers.sh [SOURCE_ROOT]   (default: src/dataparser of this repository)
set -eu
cd "$(dirname "$0")/.."
root=${1:-src/dataparser}

rank() {
  case "$1" in
    util) echo 0 ;;
    net) echo 1 ;;
    model) echo 2 ;;
    parsers) echo 3 ;;
    core) echo 4 ;;
    engine | icloud) echo 5 ;;
    report) echo 6 ;;
    *) echo "" ;;
  esac
}

status=0
tab=$(printf '\t')
# One line per include: file<TAB>included module.
find "$root" -type f \( -name '*.h' -o -name '*.cpp' \) ! -name '*_test.cpp' | sort |
  while IFS= read -r file; do
    sed -n 's|^[[:space:]]*#[[:space:]]*include[[:space:]]*"dataparser/\([a-z_]*\)/.*|\1|p' "$file" |
      while IFS= read -r used; do printf '%s\t%s\n' "$file" "$used"; done
  done >"${TMPDIR:-/tmp}/check_layers.$$"

while IFS="$tab" read -r file used; do
  own=${file#"$root"/}
  own=${own%%/*}
  own_rank=$(rank "$own")
  used_rank=$(rank "$used")
  if [ -z "$own_rank" ]; then
    echo "check_layers: $file is in no known layer ($own)" >&2
    status=1
  elif [ -z "$used_rank" ]; then
    echo "check_layers: $file includes unknown layer $used" >&2
    status=1
  elif [ "$own" != "$used" ] && [ "$used_rank" -ge "$own_rank" ]; then
    echo "check_layers: $file ($own) includes dataparser/$used/, a layer that is not below it" >&2
    status=1
  fi
done <"${TMPDIR:-/tmp}/check_layers.$$"
rm -f "${TMPDIR:-/tmp}/check_layers.$$"
[ "$status" -eq 0 ] && echo "check_layers: every include points down"
exit "$status"
