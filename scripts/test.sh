#!/usr/bin/env bash
# Installs what is missing, builds the three configurations (plain,
# AddressSanitizer + UBSan, ThreadSanitizer) and runs every test through CTest
# in each, then the ARM cross builds with their tests under emulation, then
# fuzzes. Prints the build and test time of each step.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=0}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"
jobs="${JOBS:-$(nproc)}"
status=0
times=()
for kind in release asan tsan; do
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
done
# ARM RSUs: arm64 and armhf cross builds, every test under qemu-user, and
# their Debian packages (scripts/cross.sh; it prints each step's time).
for arch in arm64 armhf; do
  start=$SECONDS
  echo "== cross $arch"
  bash scripts/cross.sh "$arch" --test --package || status=1
  times+=("cross $arch: sysroot, build, tests and packages $((SECONDS - start)) s")
done
start=$SECONDS
echo "== fuzzing (15 s per target, kept findings first)"
bash scripts/fuzz.sh 15 || status=1
times+=("fuzz: build and run $((SECONDS - start)) s")
printf '== %s\n' "${times[@]}"
exit $status
