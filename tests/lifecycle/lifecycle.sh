#!/usr/bin/env bash
# A life cycle program with a home of its own for the log files.
#
#   lifecycle.sh PROGRAM ARGUMENT...
set -euo pipefail
state=$(mktemp -d)
trap 'rm -rf "$state"' EXIT

# With one heap, memory that stays is memory that is held.
MALLOC_ARENA_MAX=1 XDG_STATE_HOME=$state/home "$@" >"$state/output.txt" 2>&1 || {
  echo "FAILED: ended with $?"
  grep -v '\[Velmoor\]\|\[cpp-mcp\]' "$state/output.txt" || true
  tail -n 100 "$state/output.txt"
  exit 1
}
grep '^cycle' "$state/output.txt" || true

# However it ended, but for _exit, the log file has an end.
[ "$2" = _exit ] || for log in "$state"/home/velmoor/logs/*/api_layer.log; do
  grep -q '==== session ended' "$log" || { echo "FAILED: no end in $log"; exit 1; }
done
