#!/usr/bin/env bash
# Instructions per event of each path through the module, counted by callgrind over a
# replay of the real phone recording, against the budget of each path. Instruction
# counts of one build are deterministic, unlike times, so this is a check: it fails
# when any path is over its budget.
#
#   bash bench/instructions.sh [BUILD_DIR]      (default build/release)
#
# Counted: the module and the libc and libm it calls, inside the driver's measured_*
# calls (bench/instructions_driver.cpp), divided by the number of those calls.
set -euo pipefail
cd "$(dirname "$0")/.."

build=${1:-build/release}
recording=${CALMODULE_DATA_DIR:-../shared/data}/nexus5-figure-eight.csv
driver=$build/bench/instructions_driver
module=$build/libcalmodule_quarvel.so

if [ ! -f "$recording" ]; then
  echo "instructions: skipped, the recording $recording is not at hand"
  exit 0
fi
command -v valgrind >/dev/null || { echo "instructions: valgrind is missing (scripts/setup.sh installs it)" >&2; exit 1; }
[ -x "$driver" ] && [ -f "$module" ] || { echo "instructions: build $build first (driver or module missing)" >&2; exit 1; }

# The soft gyroscope's budget is half of what one step cost before the filters and
# kernels were made cheaper (instructions per get_soft_gyro_value call).
soft_gyro_before=1722

# path  budget  what one event is
paths=(
  "convert  1000 magnetometer calibration, type-2 convert per magnetometer event"
  "routing  1500 HAL routing: magnetometer events to types 2 and 3, accelerometer events to type 3, per routed event"
  "rv       5000 rotation vector: get_rv_value per accelerometer event (20 ms), type-2 convert per magnetometer event, per event"
  "softgyro $((soft_gyro_before / 2)) one soft-gyroscope step (get_soft_gyro_value)"
)

out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
over=0
printf '%-9s %10s %7s  %s\n' path per-event budget "what one event is"
for entry in "${paths[@]}"; do
  read -r path budget what <<<"$entry"
  events=$(valgrind --tool=callgrind --toggle-collect='measured_*' \
             --callgrind-out-file="$out/$path" "$driver" "$module" "$recording" "$path" 2>"$out/$path.log" |
           sed -n 's/^events //p') || { cat "$out/$path.log" >&2; exit 1; }
  total=$(sed -n 's/^summary: //p' "$out/$path")
  if [ -z "$events" ] || [ "$events" -eq 0 ] || [ -z "$total" ]; then
    echo "instructions: no count for $path" >&2
    cat "$out/$path.log" >&2
    exit 1
  fi
  per=$((total / events))
  verdict=""
  if [ "$per" -gt "$budget" ]; then
    verdict="  OVER BUDGET"
    over=1
  fi
  printf '%-9s %10s %7s  %s%s\n' "$path" "$per" "$budget" "$what" "$verdict"
done
if [ "$over" -ne 0 ]; then
  echo "instructions: a path is over its budget" >&2
  exit 1
fi
echo "instructions: every path within its budget"
