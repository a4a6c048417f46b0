#!/usr/bin/env bash
# Builds arvela, assembles the two example sources beside this script and
# shows the archiver at work on them in a scratch directory.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cmake -S "$root" -B "$root/build" -G Ninja > /dev/null
cmake --build "$root/build" -j2 --target arvela > /dev/null
arvela=$root/build/arvela
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
for source in "$root"/examples/*.s; do
  as --32 -o "$(basename "${source%.s}").o" "$source"
done
show() { echo "\$ arvela $*"; "$arvela" "$@"; echo; }
show rvs drivers timer.o uart.o
show t drivers
