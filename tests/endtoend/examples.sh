#!/usr/bin/env bash
# What readers watch or believe: the demo's view, and the tools' page against the running server.
#
#   examples.sh CASE BUILD_DIRECTORY      CASE is the name of a function below
#
# Ends with 77, which stands for "skipped", where python3 is needed and not there.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
build=$2
port=8720
scratch=$(mktemp -d)
pid=

export XR_RUNTIME_JSON=$build/lib/velmoor_simulator.json
export VELMOOR_SIM_STRICT=1
export XR_API_LAYER_PATH=$build/layers
export XDG_STATE_HOME=$scratch/state
export PYTHONDONTWRITEBYTECODE=1

clean_up() {
  [ -z "$pid" ] || kill -KILL "$pid" 2>/dev/null || true
  rm -rf "$scratch"
}
trap clean_up EXIT

fail() {
  echo "FAILED: $1" >&2
  tail -n 200 "$scratch"/*.txt >&2
  exit 1
}

port_is_free() { ! (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null; }

start_demo() {
  XR_ENABLE_API_LAYERS=XR_APILAYER_KESTX_velmoor "$build/bin/velmoor_demo" --seconds 100 "$@" >"$scratch/demo.txt" 2>&1 &
  pid=$!
}

# line_of PATTERN FILE: the number of its first line that has the pattern.
line_of() {
  local line
  line=$(grep -nm1 "$1" "$2") || fail "there is no line: $1"
  echo "${line%%:*}"
}

# Each step is followed by what the application saw of it, in plain text where it goes to a file.
watched_tour() {
  local view=$scratch/view.txt step seen next act
  mkdir "$scratch/film"
  export VELMOOR_SIM_EYE_SIZE=64x64
  start_demo
  "$build/bin/velmoor_agent" --exit --pictures "$scratch" --watch "$scratch/demo.txt" --film "$scratch/film" \
    >"$view" 2>&1 || fail "the tour ended with $?"
  wait "$pid" || fail "the application ended with $?"
  step=$(line_of '^[0-9]*\. Have it spawn a cube' "$view")
  seen=$(line_of '^    app cube 1 is there' "$view")
  next=$(line_of '^[0-9]*\. Let it rain' "$view")
  [[ $step -lt $seen && $seen -lt $next ]] || fail "what the application saw is not with its step"
  line_of '^    app head at (0.00, 1.60, -0.50) looking' "$view" >/dev/null
  line_of '^    app Goodbye' "$view" >/dev/null
  line_of '^The application went on at [0-9.]* to [0-9.]* frames a second' "$view" >/dev/null
  ! grep -q 'Velmoor\]' "$view" || fail "the layer's lines are in the view"
  ! grep -q $'\033' "$view" || fail "there are colours in a file"
  # In the pictures each act has changed something, where the machine can draw.
  for act in hand pointer trigger cube weather score; do
    grep -q '^Running headless' "$scratch/demo.txt" && break
    ! cmp "$scratch/${act}_before.png" "$scratch/${act}_after.png" || fail "nothing is to be seen of: $act"
  done
  [ "$(find "$scratch/film" -name 'frame_*.png' -size +0 | wc -l)" -ge 8 ] || fail "the film is too short"
}

tools_page() {
  start_demo --headless
  python3 scripts/tools_page.py "$build/bin/velmoor" >"$scratch/tools.md" 2>"$scratch/page.txt" || fail "the page can't be made"
  wait "$pid" || fail "the application ended with $?"
  diff -u docs/tools.md "$scratch/tools.md" || fail "docs/tools.md is not what the server tells: './run docs' mends it"
}

[ "$1" = watched_tour ] || command -v python3 >/dev/null || { echo "skipped: there is no python3"; exit 77; }
port_is_free || fail "port $port is in use: end what runs with the layer, then test again"
"$1"
