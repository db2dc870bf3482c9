#!/usr/bin/env bash
# Builds and runs every test: the Release build, the AddressSanitizer +
# UndefinedBehaviorSanitizer build, and each further target configured below.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh

run_preset() {
  local preset=$1
  echo "== ${preset}: configure, build, test"
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset"
  ctest --preset "$preset"
}

run_preset release
run_preset asan
