#!/usr/bin/env bash
# The demo on the real loader and the simulator, with no layer between: it runs, sees its head, and ends well
# by itself and on a signal, with a picture where the machine can draw, and without EGL.
#
#   demo_smoke.sh DEMO RUNTIME_MANIFEST
set -euo pipefail

export XR_RUNTIME_JSON=$2
export VELMOOR_SIM_STRICT=1
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

fail() {
  echo "$1" >&2
  cat "$scratch"/*.txt >&2
  exit 1
}

timeout 20 "$1" --seconds 2 > "$scratch/timed.txt" 2>&1 || fail "the timed run ended with $?"
for line in "Running on Velmoor Simulator" "FOCUSED, [0-9.]* frames a second" "head   at (.*) looking (.*)" \
            "session is EXITING" "Goodbye"; do
  grep -q "$line" "$scratch/timed.txt" || fail "the timed run does not say: $line"
done

# By a clock of its own, a minute of frames takes less, and prints the same each time.
for run in first second; do
  VELMOOR_SIM_CLOCK=fixed VELMOOR_SIM_SEED=7 timeout 20 "$1" --headless --seconds 60 > "$scratch/$run.txt" 2>&1 || \
    fail "the $run minute ended with $?"
done
grep -q "^.59.82 s. FOCUSED, 72.00 frames a second; 0 of 4307 missed" "$scratch/first.txt" || fail "the minute has other frames"
cmp "$scratch/first.txt" "$scratch/second.txt" || fail "two runs differ"

# With no EGL it runs, too, and says so.
mkdir "$scratch/lib"
: > "$scratch/lib/libEGL.so.1"
LD_LIBRARY_PATH=$scratch/lib "$1" > "$scratch/signalled.txt" 2>&1 &
pid=$!
for _ in $(seq 100); do
  grep -q "session is FOCUSED" "$scratch/signalled.txt" && break
  sleep 0.1
done
kill -TERM "$pid"
for _ in $(seq 100); do
  kill -0 "$pid" 2>/dev/null || break
  sleep 0.1
done
kill -0 "$pid" 2>/dev/null && { kill -KILL "$pid"; fail "the signalled run did not end"; }
wait "$pid" || fail "the signalled run ended with $?"
grep -q "^Running headless: there is no libEGL.so.1" "$scratch/signalled.txt" || fail "it does not say that it draws nothing"
grep -q "Goodbye" "$scratch/signalled.txt" || fail "the signalled run ended without a goodbye"
