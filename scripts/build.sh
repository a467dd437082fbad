#!/usr/bin/env bash
# Configures and builds one configuration: scripts/build.sh [KIND [TARGET...]]
# (every target unless some are named):
#   release      build/              optimised, with debug information (RelWithDebInfo)
#   asan         build-asan/         AddressSanitizer + UBSan
#   tsan         build-tsan/         ThreadSanitizer
#   gcc-release  build-gcc-release/  Release (-O3) with GCC
#   clang-debug  build-clang-debug/  Debug with clang
# Warnings are errors here (V2X_WERROR); a plain cmake configure leaves them
# warnings.
set -euo pipefail
cd "$(dirname "$0")/.."
kind="${1:-release}"
shift $(($# > 0))
jobs="${JOBS:-$(nproc)}"
opts=(-DV2X_WERROR=ON)
case "$kind" in
  release) dir=build; opts+=(-DCMAKE_BUILD_TYPE=RelWithDebInfo) ;;
  asan) dir=build-asan; opts+=(-DCMAKE_BUILD_TYPE=Debug -DV2X_SANITIZE=address -DV2X_BUILD_BENCH=OFF) ;;
  tsan) dir=build-tsan; opts+=(-DCMAKE_BUILD_TYPE=Debug -DV2X_SANITIZE=thread -DV2X_BUILD_BENCH=OFF) ;;
  gcc-release)
    dir=build-gcc-release
    opts+=(-DCMAKE_BUILD_TYPE=Release -DCMAKE_C_COMPILER=gcc -DCMAKE_CXX_COMPILER=g++ -DV2X_BUILD_BENCH=OFF)
    ;;
  clang-debug)
    dir=build-clang-debug
    opts+=(-DCMAKE_BUILD_TYPE=Debug -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DV2X_BUILD_BENCH=OFF)
    ;;
  *) echo "usage: $0 [release|asan|tsan|gcc-release|clang-debug [TARGET...]]" >&2; exit 2 ;;
esac
cmake -S . -B "$dir" "${opts[@]}" >/dev/null
cmake --build "$dir" -j "$jobs" ${1:+--target "$@"}
