#!/usr/bin/env bash
# Configures and builds one configuration: scripts/build.sh [release|asan|tsan]
#   release  build/       optimised, with debug information
#   asan     build-asan/  AddressSanitizer + UBSan
#   tsan     build-tsan/  ThreadSanitizer
set -euo pipefail
cd "$(dirname "$0")/.."
kind="${1:-release}"
jobs="${JOBS:-$(nproc)}"
case "$kind" in
  release) dir=build; opts=(-DCMAKE_BUILD_TYPE=RelWithDebInfo) ;;
  asan) dir=build-asan; opts=(-DCMAKE_BUILD_TYPE=Debug -DV2X_SANITIZE=address -DV2X_BUILD_BENCH=OFF) ;;
  tsan) dir=build-tsan; opts=(-DCMAKE_BUILD_TYPE=Debug -DV2X_SANITIZE=thread -DV2X_BUILD_BENCH=OFF) ;;
  *) echo "usage: $0 [release|asan|tsan]" >&2; exit 2 ;;
esac
cmake -S . -B "$dir" "${opts[@]}" >/dev/null
cmake --build "$dir" -j "$jobs"
