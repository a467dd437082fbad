#!/usr/bin/env bash
# Installs what is missing, builds both configurations (plain and
# AddressSanitizer + UBSan) and runs every test through CTest.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=0}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"
jobs="${JOBS:-$(nproc)}"
status=0
for kind in release asan; do
  dir=build; [ "$kind" = asan ] && dir=build-asan
  echo "== building $kind"
  bash scripts/build.sh "$kind"
  echo "== testing $kind"
  if ! ctest --test-dir "$dir" --output-on-failure -j "$jobs" --timeout 600; then
    status=1
  fi
done
bash scripts/fuzz.sh 15 || status=1
exit $status
