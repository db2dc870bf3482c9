#!/usr/bin/env bash
# Replays a session through calhost and the module and checks what came out.
#   replay_check.sh CALHOST MODULE SESSION|simulated [memcheck]
# `simulated` replays calhost's default simulated session. Every output must be a
# finite number. With `memcheck` the replay runs under valgrind: no error, and not a
# byte left in use at exit. A session file that is absent (the real phone recording
# lives outside the repository) skips the test with code 77, saying so.
set -euo pipefail
calhost=$1 module=$2 session=$3 mode=${4:-plain}

dir=$(mktemp -d /tmp/calmodule-replay-XXXXXX)
trap 'rm -rf "$dir"' EXIT

if [ "$session" = simulated ]; then
  session=$dir/session.csv
  "$calhost" simulate -o "$session"
elif [ ! -f "$session" ]; then
  echo "skipped: $session is not here (the real recording is kept beside the repository)"
  exit 77
fi

run=("$calhost" replay "$session" --module "$module" --param-file "$dir/param.txt" --out "$dir/outputs.csv")
if [ "$mode" = memcheck ]; then
  valgrind --tool=memcheck --leak-check=full --show-leak-kinds=all --errors-for-leak-kinds=all \
    --log-file="$dir/memcheck.log" "${run[@]}" >/dev/null
  cat "$dir/memcheck.log"
  grep -q "ERROR SUMMARY: 0 errors" "$dir/memcheck.log" || { echo "FAIL: memcheck found errors"; exit 1; }
  grep -q "in use at exit: 0 bytes in 0 blocks" "$dir/memcheck.log" || { echo "FAIL: memory in use at exit"; exit 1; }
else
  "${run[@]}" >/dev/null
fi

# Every output value a number: the module never delivers NaN or infinity.
if grep -inE '(^|,)[-+]?(nan|inf)' "$dir/outputs.csv" | head -5 | grep .; then
  echo "FAIL: non-finite outputs (first five above)"
  exit 1
fi
echo "replay checked: $(wc -l <"$dir/outputs.csv") output lines"
