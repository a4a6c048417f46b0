#!/usr/bin/env bash
# The example programs of docs/library.md, run on real GNU-built libraries
# and objects and checked against GNU binutils; and the guide's code blocks,
# each of which must be quoted word for word from a program the tests build.
# One check per run, named by the first argument:
#   library_globals  its listing of a library is what nm lists
#   prefix_globals   its copy has the symbols objcopy gives when asked to
#                    rename each global symbol the same way
#   quotes           every ```cpp block of docs/library.md is in examples/
#                    or in the consumer project
#   reference        the docs target makes the API reference
# Arguments: check, source directory, build directory.
set -euo pipefail
check=$1 source=$2 build=$3

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

# The libraries, and the packages that bring them.
i386_library=/usr/lib32/libc_nonshared.a            # libc6-dev-i386 (gcc-multilib)
arm_library=/usr/lib/picolibc/arm-none-eabi/lib/release/thumb/v7-m/nofp/libsemihost.a  # picolibc-arm-none-eabi
need() { [ -f "$1" ] || fail "$1 is missing: install $2 (scripts/test --check names what is missing)"; }

case $check in
library_globals)
  need "$i386_library" gcc-multilib
  need "$arm_library" picolibc-arm-none-eabi
  for library in "$i386_library" "$arm_library"; do
    "$build/examples/library_globals" "$library" >"$scratch/listing" 2>"$scratch/errors" ||
      fail "library_globals $library exited with status $?"
    [ ! -s "$scratch/errors" ] || fail "library_globals $library: $(cat "$scratch/errors")"
    # nm: "library:member:value type name", in symbol-table order.
    nm -A -p -g --defined-only "$library" 2>/dev/null |
      sed -E 's/^[^:]*:([^:]*):[0-9a-f]* +[A-Za-z] (.*)$/\1: \2/' >"$scratch/expected"
    [ -s "$scratch/expected" ] || fail "nm lists nothing in $library"
    diff -u "$scratch/expected" "$scratch/listing" || fail "library_globals $library differs from nm"
  done
  ;;
prefix_globals)
  need "$i386_library" gcc-multilib
  need "$arm_library" picolibc-arm-none-eabi
  command -v arm-none-eabi-objcopy >/dev/null || fail "arm-none-eabi-objcopy is missing: install binutils-arm-none-eabi"
  # Each library with the binutils that know its target.
  for pair in ":$i386_library" "arm-none-eabi-:$arm_library"; do
    tools=${pair%%:*} library=${pair#*:}
    rm -rf "$scratch/members" && mkdir "$scratch/members"
    # Eight members are enough, and keep the test short.
    (cd "$scratch/members" && ar t "$library" | head -8 | xargs ar x "$library")
    for member in "$scratch"/members/*; do
      "$build/examples/prefix_globals" lib_ "$member" "$scratch/out.o" ||
        fail "prefix_globals $(basename "$member") exited with status $?"
      renames=()
      for name in $("${tools}nm" -g -p "$member" | awk '{ print $NF }' | sort -u); do
        renames+=(--redefine-sym "$name=lib_$name")
      done
      [ ${#renames[@]} -gt 0 ] || continue
      "${tools}objcopy" "${renames[@]}" "$member" "$scratch/expected.o"
      for view in "${tools}nm -p" "${tools}objdump -r"; do
        $view "$scratch/expected.o" | sed 's/expected\.o/out.o/' >"$scratch/expected"
        $view "$scratch/out.o" >"$scratch/actual"
        diff -u "$scratch/expected" "$scratch/actual" || fail "$view of $(basename "$member") differs"
      done
    done
  done
  ;;
quotes)
  guide=$source/docs/library.md
  programs=$(cat "$source"/examples/*.cpp "$source"/tests/install/consumer/*.cpp)
  blocks=0
  block= inside=false
  while IFS= read -r line; do
    if [ "$line" = '```cpp' ]; then
      inside=true block=
    elif $inside && [ "$line" = '```' ]; then
      inside=false blocks=$((blocks + 1))
      [[ "$programs" == *"$block"* ]] || fail "this block of the guide is in no example program:"$'\n'"$block"
    elif $inside; then
      block+=${block:+$'\n'}$line
    fi
  done <"$guide"
  [ "$blocks" -gt 0 ] || fail "no code blocks found in $guide"
  ;;
reference)
  command -v doxygen >/dev/null || fail "doxygen is missing: install doxygen"
  cmake --build "$build" --target docs >"$scratch/docs.log" 2>&1 || { cat "$scratch/docs.log"; fail "the docs target"; }
  html=$build/docs/html
  grep -q 'Building on OFE' "$html/index.html" || fail "the guide is not the front page"
  grep -q "Opens the object at the stream's position" "$html/namespaceOFE.html" ||
    fail "the headers' comments are not in the reference"
  ;;
*) fail "unknown check '$check'" ;;
esac
echo "ok: $check"
