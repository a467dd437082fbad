#!/usr/bin/env bash
# Builds the fuzz targets (clang, libFuzzer, ASan + UBSan) in build-fuzz/ and
# runs each in turn for SECONDS (default 60), starting from its seeds in
# fuzz/corpus/<target>/:
#   scripts/fuzz.sh [SECONDS] [TARGET...]
# New inputs go to build-fuzz/corpus/<target>/, never into the tree. Any
# finding (crash, sanitizer report, leak, broken property, time-out) stops
# that target with its input in build-fuzz/findings/<target>/ and makes the
# script exit 1; keep the input in fuzz/regressions/<target>/ once fixed.
set -euo pipefail
cd "$(dirname "$0")/.."
secs="${1:-60}"
[ $# -gt 0 ] && shift
targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  for d in fuzz/corpus/*/; do targets+=("$(basename "$d")"); done
fi

# Largest input per target: what its channel can carry at most.
max_len() {
  case "$1" in
    map_reader) echo 9999 ;;        # one joined map-down text
    dds_reassembly) echo 16384 ;;   # room for a message past the 9999-byte buffer
    stack_answer) echo 20497 ;;     # head and the largest answer body
    xer_decode) echo 32768 ;;
    *) echo 4096 ;;
  esac
}

dir=build-fuzz
CC=clang CXX=clang++ cmake -S . -B "$dir" -DV2X_FUZZ=ON -DV2X_BUILD_TESTS=OFF -DV2X_BUILD_BENCH=OFF \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_C_FLAGS_RELWITHDEBINFO="-O1 -g" \
  -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O1 -g" >/dev/null
cmake --build "$dir" -j "${JOBS:-$(nproc)}" --target "${targets[@]/#/fuzz_}"

export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=1}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"
status=0
summary=()
for t in "${targets[@]}"; do
  mkdir -p "$dir/corpus/$t" "$dir/findings/$t"
  log="$dir/findings/$t.log"
  echo "== fuzzing $t for ${secs}s"
  # Kept findings join the seeds: each run checks them again first.
  seeds=("fuzz/corpus/$t")
  [ -d "fuzz/regressions/$t" ] && seeds+=("fuzz/regressions/$t")
  if "$dir/fuzz/fuzz_$t" -max_total_time="$secs" -max_len="$(max_len "$t")" -timeout=10 \
      -print_final_stats=1 -artifact_prefix="$dir/findings/$t/" "$dir/corpus/$t" "${seeds[@]}" >"$log" 2>&1; then
    result=clean
  else
    result="FINDING (see $log)"
    status=1
    tail -n 40 "$log"
  fi
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
  rate=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log" | tail -1)
  summary+=("$(printf '%-16s %12s execs %8s exec/s  %s' "$t" "${runs:-?}" "${rate:-?}" "$result")")
done
printf '%s\n' "${summary[@]}"
exit $status
