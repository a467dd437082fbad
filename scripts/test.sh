#!/usr/bin/env bash
# Installs what is missing, builds the three configurations (plain,
# AddressSanitizer + UBSan, ThreadSanitizer) and runs every test through CTest
# in each. Prints the build and test time of each configuration.
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
start=$SECONDS
echo "== fuzzing (15 s per target, kept findings first)"
bash scripts/fuzz.sh 15 || status=1
times+=("fuzz: build and run $((SECONDS - start)) s")
printf '== %s\n' "${times[@]}"
exit $status
