#!/usr/bin/env bash
# The Debian package of the build: cpack -G DEB makes it, its control data
# and file list are checked, and it is unpacked into a scratch root (dpkg -x:
# nothing is installed on this machine) whose arvela must give the same
# version report as the build's own. A real dpkg -i is CI's business.
# Arguments: build directory.
set -euo pipefail
build=$1

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

cpack -G DEB --config "$build/CPackConfig.cmake" -B "$scratch/out" >"$scratch/cpack.log" ||
  { cat "$scratch/cpack.log"; fail "cpack"; }
debs=("$scratch"/out/*.deb)
[ ${#debs[@]} -eq 1 ] && [ -f "${debs[0]}" ] || fail "expected one .deb, found: ${debs[*]}"
deb=${debs[0]}

[ "$(dpkg-deb -f "$deb" Package)" = arvela ] || fail "package name"
dpkg-deb -f "$deb" Depends | grep -q 'libc6' || fail "no dependency on libc6: $(dpkg-deb -f "$deb" Depends)"
[ "$(dpkg-deb -f "$deb" Architecture)" = "$(dpkg --print-architecture)" ] || fail "architecture"

dpkg -x "$deb" "$scratch/root"
for f in usr/bin/arvela usr/share/man/man1/arvela.1 usr/lib/libofe.a \
         usr/include/ofe/objfile/of_file.h usr/lib/cmake/ofe/ofeConfig.cmake \
         usr/lib/pkgconfig/ofe.pc; do
  [ -f "$scratch/root/$f" ] || fail "$f not in the package"
done

"$scratch/root/usr/bin/arvela" --toolversion >"$scratch/packaged" || fail "packaged arvela --toolversion"
"$build/arvela" --toolversion >"$scratch/built"
diff -u "$scratch/built" "$scratch/packaged" || fail "the packaged arvela reports another version"
echo "ok: $(basename "$deb")"
