#!/usr/bin/env bash
# A build configured with SOURCE_DATE_EPOCH codes that instant in its version
# report, whenever and wherever it is compiled; a malformed value stops the
# configuration. Builds only arvela, in a scratch tree, without the tests.
# Arguments: source directory, the build's own arvela (for the banner line).
set -euo pipefail
source=$1 arvela=$2

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

configure() {
  env SOURCE_DATE_EPOCH="$1" cmake -S "$source" -B "$scratch/build" -G Ninja -DARVELA_TESTS=OFF \
    -DCMAKE_CXX_COMPILER="${CXX_COMPILER:-c++}" >"$scratch/configure.log" 2>&1
}

if configure 17e8; then fail "a malformed SOURCE_DATE_EPOCH was accepted"; fi
grep -q "SOURCE_DATE_EPOCH is not a decimal number of seconds: '17e8'" "$scratch/configure.log" ||
  { cat "$scratch/configure.log"; fail "no message for the malformed value"; }
rm -rf "$scratch/build"

# 2023-11-14 22:13:20 UTC: year 2023 "X", day 14 "E", hour 22 "W".
configure 1700000000 || { cat "$scratch/configure.log"; fail "configure"; }
cmake --build "$scratch/build" -j1 --target arvela >"$scratch/build.log" ||
  { cat "$scratch/build.log"; fail "build"; }
expected="$("$arvela" --toolversion | head -1)
Build Number 1XKEW-2LI-RZAQQ-SAR-C08D"
actual=$("$scratch/build/arvela" --toolversion)
[ "$actual" = "$expected" ] || fail "version report: $actual"
echo "ok"
