#!/usr/bin/env bash
# Builds and runs every test, on every target the module ships to:
#   release  the build that ships (-O2), with the benchmarks built
#   asan     AddressSanitizer + UndefinedBehaviorSanitizer
#   debug    unoptimised (-O0): the identity session must come out the same
#   clang    clang at -O2: likewise
#   armhf    32-bit ARM, cross-built, tests under qemu-arm
#   arm64    64-bit ARM, cross-built, tests under qemu-aarch64
#   fuzz     every libFuzzer target for 45 s (scripts/fuzz.sh; FUZZ_SECONDS=n to change)
# After the release build, a check of its own: instructions per event of each path,
# counted by callgrind on the real recording, against their budgets
# (bench/instructions.sh).
# Every build runs to the end; the script fails if any of them failed.
#   bash scripts/test.sh                 all of them
#   bash scripts/test.sh armhf arm64     just these presets (after setup)
set -uo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh || { echo "setup failed" >&2; exit 1; }

presets=("$@")
[ "${#presets[@]}" -gt 0 ] || presets=(release asan debug clang armhf arm64 fuzz)

failed=()
timings=()
run_preset() {
  local preset=$1 start=$SECONDS
  echo "== ${preset}: configure, build, test"
  if [ "$preset" = fuzz ]; then
    run=(bash scripts/fuzz.sh "${FUZZ_SECONDS:-45}")
  else
    run=(eval 'cmake --preset "$preset" >/dev/null && cmake --build --preset "$preset" && ctest --preset "$preset"')
  fi
  if "${run[@]}"; then
    timings+=("${preset} $((SECONDS - start))s")
  else
    timings+=("${preset} FAILED after $((SECONDS - start))s")
    failed+=("$preset")
  fi
}

run_instructions() {
  local start=$SECONDS
  echo "== instructions per event (release, callgrind)"
  if bash bench/instructions.sh build/release; then
    timings+=("instructions $((SECONDS - start))s")
  else
    timings+=("instructions FAILED after $((SECONDS - start))s")
    failed+=("instructions")
  fi
}

for preset in "${presets[@]}"; do
  run_preset "$preset"
  if [ "$preset" = release ] && [[ " ${failed[*]} " != *" release "* ]]; then
    run_instructions
  fi
done

echo "== times: ${timings[*]}; total ${SECONDS}s"
if [ "${#failed[@]}" -gt 0 ]; then
  echo "== FAILED: ${failed[*]}" >&2
  exit 1
fi
echo "== every build passed: ${presets[*]}"
