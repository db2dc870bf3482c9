#!/usr/bin/env bash
# Replays the real recording through calhost and the module:
#   replay_check.sh CALHOST MODULE SESSION plain|memcheck
# Every output must be a finite number. With `memcheck` the replay runs under
# valgrind: no error, and not a byte left in use at exit. An absent recording (it lives
# outside the repository) skips the test with code 77, saying so.
set -euo pipefail
calhost=$1 module=$2 session=$3 mode=$4
[ -f "$session" ] || { echo "skipped: $session is not here (it is kept beside the repository)"; exit 77; }
dir=$(mktemp -d /tmp/calmodule-replay-XXXXXX)
trap 'rm -rf "$dir"' EXIT

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
if grep -inE '(^|,)[-+]?(nan|inf)' "$dir/outputs.csv" | head -5 | grep .; then
  echo "FAIL: non-finite outputs (first five above)"
  exit 1
fi
echo "replay checked: $(wc -l <"$dir/outputs.csv") output lines"
