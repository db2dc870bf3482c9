#!/usr/bin/env bash
# Builds the libFuzzer targets (preset `fuzz`) and runs each for a bounded time.
#   bash scripts/fuzz.sh                      every target, 50 s each
#   bash scripts/fuzz.sh 600                  every target, 10 min each
#   bash scripts/fuzz.sh 3600 algorithms      one target, an hour
# Each run starts from the seeds in fuzz/corpus/<target> plus what earlier runs found
# (build/fuzz/corpus/<target>, kept between runs). A finding is written as
# build/fuzz/crash-* (replay it: build/fuzz/fuzz/fuzz_<target> <file>) and fails the
# script. The last line of each target gives its runs, runs per second and findings.
set -uo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-50}
shift || true
targets=("$@")
[ "${#targets[@]}" -gt 0 ] || targets=(algorithms estimators parameter_file matrix akfs session)

cmake --preset fuzz >/dev/null && cmake --build --preset fuzz || exit 1

failed=()
for t in "${targets[@]}"; do
  corpus=build/fuzz/corpus/$t
  mkdir -p "$corpus"
  log=build/fuzz/fuzz_$t.log
  ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
    build/fuzz/fuzz/fuzz_$t "$corpus" "fuzz/corpus/$t" -max_total_time="$seconds" \
    -artifact_prefix=build/fuzz/ -print_final_stats=1 -max_len=4096 >"$log" 2>&1
  rc=$?
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
  per_s=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log")
  if [ "$rc" -eq 0 ]; then
    echo "fuzz_$t: ${runs:-?} runs in ${seconds} s (${per_s:-?}/s), no findings"
  else
    echo "fuzz_$t: FINDING after ${runs:-?} runs (exit $rc); see $log"
    grep -E 'ERROR|promise broken|SUMMARY|runtime error' "$log" | head -5
    failed+=("$t")
  fi
done
[ "${#failed[@]}" -eq 0 ] || { echo "fuzzers with findings: ${failed[*]}" >&2; exit 1; }
