#!/usr/bin/env bash
# velmoor-doctor in good and broken set-ups, each a row: what is said, and how it ends.
#
#   setups.sh BUILD_DIRECTORY
set -euo pipefail
build=$1
port=8720
scratch=$(mktemp -d)
pids=()
failures=0

clean_up() {
  for pid in "${pids[@]}"; do kill -KILL "$pid" 2>/dev/null || true; done
  rm -rf "$scratch"
}
trap clean_up EXIT

layer=XR_APILAYER_KESTX_velmoor
library=$build/lib/libXrApiLayer_KESTX_velmoor.so
simulator=XR_RUNTIME_JSON=$build/lib/velmoor_simulator.json
built=XR_API_LAYER_PATH=$build/layers
named=XR_ENABLE_API_LAYERS=$layer

# row NAME EXIT_CODE PATTERN VARIABLE=VALUE...: the doctor sees no other variables, and no other user's files.
row() {
  local name=$1 expected=$2 pattern=$3 code=0
  shift 3
  timeout 30 env -i VELMOOR_SIM_STRICT=1 HOME="$scratch/home" XDG_CONFIG_DIRS="$scratch/none" XDG_DATA_DIRS="$scratch/none" "$@" \
    "$build/bin/velmoor-doctor" >"$scratch/report" 2>&1 || code=$?
  [ "$code" = "$expected" ] && grep -qE -e "$pattern" "$scratch/report" && return
  echo "FAILED: $name: ended with $code, expected $expected, and: $pattern"
  cat "$scratch/report"
  failures=$((failures + 1))
}

# manifest FILE LIBRARY [LINE...]: a manifest of the layer, with more lines of the layer's object.
manifest() {
  local file=$1 path=$2
  shift 2
  mkdir -p "$(dirname "$file")"
  cat >"$file" <<JSON
{"file_format_version": "1.0.0", "api_layer": {$*
  "name": "$layer", "library_path": "$path", "api_version": "1.1", "implementation_version": "1"}}
JSON
}

# hold [FAMILY]: a stranger takes the port, until let_go.
hold() {
  mkfifo "$scratch/open"
  "$build/bin/port_holder" "$port" "$@" <"$scratch/open" >"$scratch/holder" &
  pids+=($!)
  exec 9>"$scratch/open"
  for _ in $(seq 200); do ! grep -q ready "$scratch/holder" || return 0; sleep 0.05; done
  echo "FAILED: the port can't be held"
  exit 1
}

let_go() {
  exec 9>&-
  wait "${pids[-1]}"
  rm "$scratch/open"
}

mkdir -p "$scratch/home" "$scratch/loader" "$scratch/broken" "$scratch/config/openxr/1"
echo "no library" >"$scratch/loader/libopenxr_loader.so.1"
echo "{" >"$scratch/broken/XrApiLayer_KESTX_velmoor.json"
sed "s|\./lib|$build/lib/lib|" "$build/lib/velmoor_simulator.json" >"$scratch/config/openxr/1/active_runtime.json"
echo '{"file_format_version": "1.0.0", "runtime": {"name": "Gone", "library_path": "./gone.so"}}' >"$scratch/gone.json"
manifest "$scratch/gone/XrApiLayer_KESTX_velmoor.json" ./gone.so
manifest "$scratch/other/XrApiLayer_KESTX_velmoor.json" libc.so.6
manifest "$scratch/always/openxr/1/api_layers/implicit.d/velmoor.json" "$library" '"disable_environment": "OFF",'
manifest "$scratch/asked/openxr/1/api_layers/implicit.d/velmoor.json" "$library" \
  '"disable_environment": "OFF", "enable_environment": "ON",'

row "all is well" 0 '^ok +layer +on by XR_ENABLE_API_LAYERS' "$simulator" "$built" "$named"
row "all is well: the runtime" 0 '^ok +runtime +Velmoor Simulator' "$simulator" "$built" "$named"
row "all is well: the tools" 0 '^ok +extension' "$simulator" "$built" "$named"
row "all is well: the port" 0 "^ok +port +$port is free" "$simulator" "$built" "$named"
row "all is well: the logs" 0 "^ok +logs +$scratch/home/.local/state/velmoor/logs" "$simulator" "$built" "$named"
bare=VELMOOR_SIM_WITHOUT=automation,capture
row "a runtime without automation" 0 '-> add XR_APILAYER_VELMOOR_automation to XR_ENABLE' "$simulator" "$built" "$named" $bare
row "the automation layer" 0 '^ok +extension +runtime and automation layer' "$simulator" "$built" $bare \
  XR_ENABLE_API_LAYERS=$layer:XR_APILAYER_VELMOOR_automation
row "the automation layer above" 1 "^bad +layer .*before this layer" "$simulator" "$built" $bare \
  XR_ENABLE_API_LAYERS=XR_APILAYER_VELMOOR_automation:$layer
row "the automation layer below an implicit one" 0 '^ok +extension +runtime and automation layer' "$simulator" "$built" \
  $bare XDG_DATA_HOME="$scratch/always" XR_ENABLE_API_LAYERS=XR_APILAYER_VELMOOR_automation
row "no loader" 1 '^bad +loader .*libopenxr_loader.so.1' "$simulator" "$built" "$named" LD_LIBRARY_PATH="$scratch/loader"
row "the active runtime" 0 "^ok +runtime +Velmoor Simulator, $scratch/config" "$built" "$named" \
  XDG_CONFIG_HOME="$scratch/config"
# The loader's place for all users can't be moved.
compgen -G '/etc/openxr/1/active_runtime*' >/dev/null ||
  row "no runtime" 1 "^bad +runtime +none is active; there is no $scratch/home/.config" "$built" "$named"
row "the runtime is gone" 1 '^bad +runtime +Gone, .*does not load: XR_ERROR' "$built" "$named" XR_RUNTIME_JSON="$scratch/gone.json"
row "no layer" 1 "^bad +layer +not found below $scratch/none, /etc, $scratch/home" "$simulator"
row "no layer, but named" 1 '^bad +layer .*applications fail to start' "$simulator" "$named"
row "not switched on" 1 "-> export XR_ENABLE_API_LAYERS=$layer" "$simulator" "$built"
row "a torn manifest" 1 '^warn +manifest .*no JSON: it is wrong at byte 3' "$simulator" "$named" XR_API_LAYER_PATH="$scratch/broken"
row "no library" 1 '^warn +manifest .*gone.so: cannot open' "$simulator" "$named" XR_API_LAYER_PATH="$scratch/gone"
row "another library" 1 '^warn +manifest .*is no OpenXR layer' "$simulator" "$named" XR_API_LAYER_PATH="$scratch/other"
row "one good, one broken" 0 '^warn +manifest' "$simulator" "$named" XR_API_LAYER_PATH="$scratch/broken:$build/layers"
row "implicit" 0 '^ok +layer +on for each application' "$simulator" XDG_DATA_HOME="$scratch/always"
row "implicit, taken off" 1 '-> unset OFF' "$simulator" XDG_DATA_HOME="$scratch/always" OFF=
row "implicit, not asked for" 1 '-> export ON=1' "$simulator" XDG_DATA_HOME="$scratch/asked"
row "implicit, asked for" 0 'started with ON' "$simulator" XDG_DATA_HOME="$scratch/asked" ON=1
row "no place for logs" 0 '^warn +logs +/dev/null/nowhere' "$simulator" "$built" "$named" XDG_STATE_HOME=/dev/null/nowhere
hold
row "the port is taken" 1 "^bad +port .*port_holder \\(pid ${pids[-1]}\\)" "$simulator" "$built" "$named"
let_go
hold ipv4
row "the port is taken on IPv4" 0 '^warn +port .*free on IPv6, .*port_holder' "$simulator" "$built" "$named"
let_go

# An application that runs with the layer, whose server tells its name.
env VELMOOR_SIM_STRICT=1 HOME="$scratch/home" "$simulator" "$built" "$named" XDG_STATE_HOME="$scratch/home" \
  "$build/bin/velmoor_demo" --headless --seconds 60 >"$scratch/demo" 2>&1 </dev/null &
pids+=($!)
for _ in $(seq 200); do ! grep -q FOCUSED "$scratch/demo" || break; sleep 0.05; done
row "an application runs" 0 'velmoor_demo \(pid [0-9]+\), which answers as OrvanicXR_MCP_Server 1.0.0' \
  "$simulator" "$built" "$named"
exec 3<>"/dev/tcp/127.0.0.1/$port"
kill -INT "${pids[-1]}"
wait "${pids[-1]}" || true
exec 3>&-
# The connection that its server closed lingers on the port for a minute.
row "an application has run" 0 "^ok +port +$port is free" "$simulator" "$built" "$named"

[ "$failures" = 0 ]
