#!/usr/bin/env bash
# Configures and builds one configuration: scripts/build.sh [release|asan]
set -euo pipefail
cd "$(dirname "$0")/.."
kind="${1:-release}"
jobs="${JOBS:-$(nproc)}"
case "$kind" in
  release) cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null ;;
  asan) cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=Debug -DV2X_SANITIZE=ON -DV2X_BUILD_BENCH=OFF >/dev/null ;;
  *) echo "usage: $0 [release|asan]" >&2; exit 2 ;;
esac
dir=build; [ "$kind" = asan ] && dir=build-asan
cmake --build "$dir" -j "$jobs"
