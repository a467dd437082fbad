#!/usr/bin/env bash
# Builds the Debian packages from debian/ with dpkg-buildpackage, in a copy of
# the source tree under build-deb/ (dpkg-buildpackage puts its results beside
# the source directory, and the copy keeps the working tree's build
# directories out of the source package's view):
#
#   scripts/package.sh [OUTDIR]       default OUTDIR: build-deb
#
# The packages (and their -dbgsym packages) end up in OUTDIR; then
# tests/packaging/deb_test.sh checks them (lintian, contents, an unpacked
# install). Environment:
# DEB_BUILD_OPTIONS as usual (CI passes nocheck: the tests have run already),
# CMAKE_*_COMPILER_LAUNCHER (ccache) are passed through.
set -euo pipefail
cd "$(dirname "$0")/.."
out="$(realpath -m "${1:-build-deb}")"
src="$out/v2x-map-convert"
rm -rf "$out"
mkdir -p "$src"
# Tracked files and new ones not yet committed; nothing git ignores.
git ls-files -z --cached --others --exclude-standard | while IFS= read -r -d '' f; do
  [ -e "$f" ] && printf '%s\0' "$f"
done | tar --null -T - -cf - | tar -xf - -C "$src"
jobs="${JOBS:-$(nproc)}"
profiles=()  # nocheck: the test-only build dependencies are not needed either
[[ " ${DEB_BUILD_OPTIONS:-} " == *" nocheck "* ]] && profiles=(-Pnocheck)
# Cross builds (scripts/cross.sh): V2X_CROSS_ARCH names the target
# architecture; its build dependencies are in the sysroot, not installed.
cross=()
[ -n "${V2X_CROSS_ARCH:-}" ] && cross=(-a "$V2X_CROSS_ARCH" -d)
(cd "$src" && DEB_BUILD_OPTIONS="${DEB_BUILD_OPTIONS:-} parallel=$jobs" dpkg-buildpackage -us -uc -b "${profiles[@]}" "${cross[@]}") \
  >"$out/build.log" 2>&1 || { tail -n 60 "$out/build.log" >&2; echo "package.sh: dpkg-buildpackage failed (log: $out/build.log)" >&2; exit 1; }
rm -rf "$src"
# The checks run the programs: on this machine's architecture only.
[ -n "${V2X_CROSS_ARCH:-}" ] || bash tests/packaging/deb_test.sh "$out" .
