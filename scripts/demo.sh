#!/usr/bin/env bash
# The main job, on a fresh machine: install what is needed, build the module and
# calhost, then simulate a handset, replay it through the module as a sensors HAL does
# and write the HTML report; the real phone recording too, when it is at hand.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh

echo "== build: the module and calhost (preset device)"
cmake --preset device >/dev/null
cmake --build --preset device --target calhost

calhost=build/device/tools/calhost
out=build/demo
mkdir -p "$out"

echo
echo "== calhost info: the module as a HAL finds it"
"$calhost" info

echo
echo "== calhost demo: simulate, replay, report"
"$calhost" demo --dir "$out"

recording=../shared/data/nexus5-figure-eight.csv
if [ -f "$recording" ]; then
  echo
  echo "== calhost report: the real phone recording, against the phone's own offset estimate"
  # The recording's comments give the phone's estimate: "...: 57.99 -73.75 32.41 uT".
  reference=$(sed -n 's/.*hard-iron estimate[^:]*: *\([-0-9.]*\) \([-0-9.]*\) \([-0-9.]*\) uT.*/\1,\2,\3/p' "$recording")
  "$calhost" report "$recording" -o "$out/nexus5-report.html" --csv "$out/nexus5-outputs.csv" \
    ${reference:+--reference-offset="$reference"}
fi

echo
echo "Open the report in a browser: $(cd "$out" && pwd)/report.html"
