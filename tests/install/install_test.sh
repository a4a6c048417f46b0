#!/usr/bin/env bash
# Installs the build into a scratch prefix and checks it as a user of the
# prefix would see it. One check per run, named by the first argument:
#   layout     the files in place, every manual page renders without warnings,
#              the installed arvela runs
#   cmake      a separate project built with find_package(ofe CONFIG) lists
#              the symbols of an object assembled here
#   pkgconfig  the same program built with the flags from ofe.pc
#   subdirectory  the same project built with the source tree added by
#              add_subdirectory instead (nothing is installed for it)
# The consumer includes <ofe/objfile/...> and builds without a warning.
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

if [ "$check" != subdirectory ]; then
  cmake --install "$build" --prefix "$prefix" >"$scratch/install.log" ||
    { cat "$scratch/install.log"; fail "cmake --install"; }
fi

# Configures and builds the consumer project in $consumer with the extra
# cmake arguments given; its build log must hold no warning.
consumer=$scratch/consumer
build_consumer() {
  cmake -S "$here/consumer" -B "$consumer" -G Ninja "$@" \
    -DCMAKE_CXX_COMPILER="${CXX_COMPILER:-c++}" -DCMAKE_CXX_COMPILER_LAUNCHER="${CXX_LAUNCHER:-}" \
    -DCMAKE_CXX_FLAGS="${CONSUMER_CXXFLAGS:-}" >"$scratch/configure.log" 2>&1 ||
    { cat "$scratch/configure.log"; fail "configuring the consumer"; }
  cmake --build "$consumer" -j1 --target list_symbols >"$scratch/build.log" 2>&1 ||
    { cat "$scratch/build.log"; fail "building the consumer"; }
  ! grep -i 'warning' "$scratch/configure.log" "$scratch/build.log" || fail "warnings building the consumer"
}

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
  build_consumer -DCMAKE_PREFIX_PATH="$prefix"
  # The package found must be the one just installed, not one on the system.
  grep -qx "ofe_DIR:PATH=$prefix/lib/cmake/ofe" "$consumer/CMakeCache.txt" ||
    fail "found $(grep '^ofe_DIR' "$consumer/CMakeCache.txt")"
  check_listing "$consumer/list_symbols"
  ;;
subdirectory)
  # It compiles the library too: in a fixed place in the build tree, so that
  # the compiler launcher (ccache) finds it compiled from the second run on.
  consumer=$build/subdirectory-consumer
  rm -rf "$consumer"
  trap 'rm -rf "$scratch" "$consumer"' EXIT
  build_consumer -DOFE_SOURCE_DIR="$source"
  # A subproject gets the library and the tools, but not the archiver's tests.
  targets=$(cmake --build "$consumer" --target help)
  case $targets in *arvela_tests*) fail "the archiver's tests are built in a subproject" ;; esac
  [ ! -e "$consumer/ofe/tests" ] || fail "the tests' directory was configured"
  check_listing "$consumer/list_symbols"
  ;;
pkgconfig)
  # The scratch prefix is searched first; the flags must point into it.
  flags=$(PKG_CONFIG_PATH=$prefix/lib/pkgconfig pkg-config --cflags --libs ofe) ||
    fail "pkg-config does not find ofe"
  case $flags in *"$prefix"*) ;; *) fail "flags do not point into the prefix: $flags" ;; esac
  # shellcheck disable=SC2086  # the flags are words
  "${CXX_COMPILER:-c++}" ${CONSUMER_CXXFLAGS:-} -Wall -Wextra -Werror -o "$scratch/list_symbols" "$here/consumer/list_symbols.cpp" $flags ||
    fail "building the consumer with: $flags"
  check_listing "$scratch/list_symbols"
  ;;
*) fail "unknown check '$check'" ;;
esac
echo "ok: $check"
