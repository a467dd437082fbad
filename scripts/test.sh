#!/usr/bin/env bash
# Installs what is missing, builds the five configurations of
# scripts/build.sh (plain, AddressSanitizer + UBSan, ThreadSanitizer, Release
# with GCC, Debug with clang) and runs every test through CTest in each, fuzzes
# every input, then builds and checks the Debian packages, then the arm64 and
# armhf builds with their tests under emulation. Prints the time of each step.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=0}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"
jobs="${JOBS:-$(nproc)}"
status=0
times=()
# /dev/null has been found replaced by a plain file after a step of this run
# (which step is not known yet); apt's sandbox in the cross builds cannot write
# to it then. Each step is checked: the step is named and the device restored.
devnull() {
  [ -c /dev/null ] && return 0
  echo "== $1 left /dev/null as a plain file: restored" >&2
  if [ "$(id -u)" -eq 0 ]; then rm -f /dev/null && mknod -m 666 /dev/null c 1 3; fi
}
# Besides the plain and the sanitizer configurations: Release (-O3) with GCC
# and Debug with clang, each built warning-free and tested.
for kind in release asan tsan gcc-release clang-debug; do
  case "$kind" in release) dir=build ;; *) dir="build-$kind" ;; esac
  start=$SECONDS
  echo "== building $kind"
  bash scripts/build.sh "$kind"
  built=$SECONDS
  echo "== testing $kind"
  if ! ctest --test-dir "$dir" --output-on-failure -j "$jobs" --timeout 600; then
    status=1
  fi
  times+=("$kind: build $((built - start)) s, tests $((SECONDS - built)) s")
  devnull "$kind"
done
start=$SECONDS
echo "== fuzzing (15 s per target, kept findings first)"
bash scripts/fuzz.sh 15 || status=1
times+=("fuzz: build and run $((SECONDS - start)) s")
devnull fuzz
# --- Debian packages: dpkg-buildpackage (the tests ran above: nocheck), then
# lintian, contents and an unpacked install (tests/packaging/deb_test.sh).
start=$SECONDS
echo "== Debian packages"
DEB_BUILD_OPTIONS=nocheck bash scripts/package.sh || status=1
times+=("packages: build and check $((SECONDS - start)) s")
devnull packages
# --- end of Debian packages
# --- ARM RSUs: arm64 and armhf cross builds, every test under qemu-user, and
# their Debian packages (scripts/cross.sh; it prints each step's time).
# V2X_CROSS_ARCHS chooses the architectures (empty: none).
for arch in ${V2X_CROSS_ARCHS-arm64 armhf}; do
  start=$SECONDS
  echo "== cross $arch"
  bash scripts/cross.sh "$arch" --test --package || status=1
  times+=("cross $arch: sysroot, build, tests and packages $((SECONDS - start)) s")
done
# --- end of ARM RSUs

printf '== %s\n' "${times[@]}"
exit $status
