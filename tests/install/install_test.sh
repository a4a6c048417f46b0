#!/usr/bin/env bash
# Installs the build into a scratch prefix and checks it as a user of the
# prefix would see it. One check per run, named by the first argument:
#   layout     the files in place, every manual page renders without warnings,
#              the installed arvela runs
#   cmake      a separate project built with find_package(ofe CONFIG) lists
#              the symbols of an object assembled here
#   pkgconfig  the same program built with the flags from ofe.pc
# Arguments: check, build directory, source directory. CXX_COMPILER is the
# build's compiler; CONSUMER_CXXFLAGS adds flags to the consumer (the
# sanitizer build needs its runtime).
set -euo pipefail
check=$1 build=$2 source=$3
here=$source/tests/install

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
prefix=$scratch/prefix

fail() { echo "FAIL: $*" >&2; exit 1; }

cmake --install "$build" --prefix "$prefix" >"$scratch/install.log" ||
  { cat "$scratch/install.log"; fail "cmake --install"; }

# The consumer's output for the object assembled from probe.s.
check_listing() {
  as --32 -o "$scratch/probe.o" "$here/probe.s"
  "$1" "$scratch/probe.o" >"$scratch/listing" || fail "$1 exited with status $?"
  diff -u "$here/probe.expected" "$scratch/listing" || fail "symbol listing differs"
}

case $check in
layout)
  for f in bin/arvela share/man/man1/arvela.1 lib/libofe.a \
           include/ofe/objfile/of_file.h include/ofe/objfile/elf/elf_file.h \
           include/ofe/objfile/coff/qvcoff_file.h include/ofe/support/record_codec.h \
           lib/cmake/ofe/ofeConfig.cmake lib/cmake/ofe/ofeConfigVersion.cmake \
           lib/cmake/ofe/ofeTargets.cmake lib/pkgconfig/ofe.pc; do
    [ -f "$prefix/$f" ] || fail "$f not installed"
  done
  # Headers only: no sources, and nothing of the archiver or the tests.
  extra=$(cd "$prefix/include/ofe" && find . -type f ! -name '*.h')
  [ -z "$extra" ] || fail "not headers: $extra"
  [ ! -e "$prefix/include/ofe/archiver" ] || fail "archiver headers installed"
  # The library holds only the support it uses, not the archiver's.
  for h in fh_manager regular_file replacement_file zalloc; do
    [ ! -e "$prefix/include/ofe/support/$h.h" ] || fail "archiver support header $h.h installed"
  done
  if nm --defined-only -C "$prefix/lib/libofe.a" | grep -q 'managed_open\|replacement_create\|POOL::'; then
    fail "libofe.a holds the archiver's support"
  fi
  # Every installed tool has its page and every page its tool.
  tools=$(ls "$prefix/bin") pages=$(cd "$prefix/share/man/man1" && ls | sed 's/\.1$//')
  [ "$tools" = "$pages" ] || fail "tools ($tools) and manual pages ($pages) differ"
  # The pages of tools this tree does not build yet are checked from the sources.
  for page in "$prefix"/share/man/man1/*.1 "$source"/man/*.1; do
    warnings=$(MANWIDTH=80 man --warnings -l "$page" 2>&1 >/dev/null)
    [ -z "$warnings" ] || fail "man warns on $page: $warnings"
    warnings=$(groff -ww -man -z "$page" 2>&1)
    [ -z "$warnings" ] || fail "groff warns on $page: $warnings"
    MANWIDTH=80 man -l "$page" | grep -q "^NAME" || fail "$page renders no NAME section"
  done
  "$prefix/bin/arvela" --toolversion >"$scratch/version" || fail "installed arvela --toolversion"
  grep -q '^Vela Archiver  *v[0-9.]*\.LTS$' "$scratch/version" || fail "banner line: $(cat "$scratch/version")"
  grep -q '^Build Number 1' "$scratch/version" || fail "build number: $(cat "$scratch/version")"
  ;;
cmake)
  cmake -S "$here/consumer" -B "$scratch/consumer" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_CXX_COMPILER="${CXX_COMPILER:-c++}" -DCMAKE_CXX_FLAGS="${CONSUMER_CXXFLAGS:-}" >"$scratch/configure.log" ||
    { cat "$scratch/configure.log"; fail "configuring the consumer"; }
  # The package found must be the one just installed, not one on the system.
  grep -qx "ofe_DIR:PATH=$prefix/lib/cmake/ofe" "$scratch/consumer/CMakeCache.txt" ||
    fail "found $(grep '^ofe_DIR' "$scratch/consumer/CMakeCache.txt")"
  cmake --build "$scratch/consumer" >"$scratch/build.log" ||
    { cat "$scratch/build.log"; fail "building the consumer"; }
  check_listing "$scratch/consumer/list_symbols"
  ;;
pkgconfig)
  # The scratch prefix is searched first; the flags must point into it.
  flags=$(PKG_CONFIG_PATH=$prefix/lib/pkgconfig pkg-config --cflags --libs ofe) ||
    fail "pkg-config does not find ofe"
  case $flags in *"$prefix"*) ;; *) fail "flags do not point into the prefix: $flags" ;; esac
  # shellcheck disable=SC2086  # the flags are words
  "${CXX_COMPILER:-c++}" ${CONSUMER_CXXFLAGS:-} -o "$scratch/list_symbols" "$here/consumer/list_symbols.cpp" $flags ||
    fail "building the consumer with: $flags"
  check_listing "$scratch/list_symbols"
  ;;
*) fail "unknown check '$check'" ;;
esac
echo "ok: $check"
