#!/usr/bin/env bash
# The built layer under the real loader, on the simulator.
#
#   endtoend.sh CASE BUILD_DIRECTORY      CASE is the name of a function below
#
# Ends with 77, which stands for "skipped", where a program that is no part of the build is missing; with
# CLIENTS_WANTED set, that is a failure.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
build=$2
port=8720
scratch=$(mktemp -d)
state=$scratch/state
pids=()

export XR_RUNTIME_JSON=$build/lib/velmoor_simulator.json
export VELMOOR_SIM_STRICT=1
export XR_API_LAYER_PATH=$build/layers
export XR_ENABLE_API_LAYERS=XR_APILAYER_KESTX_velmoor
export XDG_STATE_HOME=$state

clean_up() {
  for pid in "${pids[@]}"; do kill -KILL "$pid" 2>/dev/null || true; done
  rm -rf "$scratch"
}
trap clean_up EXIT

fail() {
  echo "FAILED: $1"
  tail -n 200 "$scratch"/*.txt
  exit 1
}

need() {
  if command -v "$1" >/dev/null; then return; fi
  echo "skipped: there is no $1"
  [ -n "${CLIENTS_WANTED:-}" ] || exit 77
  exit 1
}

# start NAME PROGRAM [ARGUMENT...]: what it prints goes to NAME.txt; `pid` is its process. Its standard input is
# descriptor 9, which the script holds.
start() {
  local name=$1
  shift
  [ -p "$scratch/stdin" ] || { mkfifo "$scratch/stdin"; exec 9<>"$scratch/stdin"; }
  : >"$scratch/$name.txt"  # now, not when the process comes to it: what an earlier one said is not to be found
  "$@" <"$scratch/stdin" >"$scratch/$name.txt" 2>&1 9>&- &
  pid=$!
  pids+=("$pid")
}

wait_for_line() {
  for _ in $(seq 200); do
    ! grep -q "$2" "$scratch/$1.txt" || return 0
    sleep 0.05
  done
  fail "$1 does not say: $2"
}

# ended_well NAME: the process ends by itself, soon, and with 0.
ended_well() {
  for _ in $(seq 200); do
    kill -0 "$pid" 2>/dev/null || break
    sleep 0.05
  done
  ! kill -0 "$pid" 2>/dev/null || fail "$1 does not end"
  wait "$pid" || fail "$1 ended with $?"
}

answers() { (exec 3<>"/dev/tcp/$1/$port") 2>/dev/null; }

port_is_free() { ! answers 127.0.0.1 && ! answers ::1; }

# Opens the event stream as descriptor 4 and waits until the session has its address.
open_stream() {
  local line
  exec 4<>"/dev/tcp/127.0.0.1/$port"
  printf 'GET /sse HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n' >&4
  while read -r -t 10 line <&4; do
    [[ $line != "data: /message?session_id="* ]] || return 0
  done
  fail "the stream does not name its address"
}

# warned_of_a_shared_port PID FAMILY...: that process warned of another one, once for each of the families.
warned_of_a_shared_port() {
  local log
  log=$(echo "$state"/velmoor/logs/*_"$1"/api_layer.log)
  shift
  [ "$(sed -n "s/.*WARNING.*Port $port (\(.*\)) is already served by another process, .*/\1/p" "$log" | sort | xargs)" = "$*" ] ||
    fail "it does not warn of another process on exactly: $*"
}

layer_log() { cat "$state"/velmoor/logs/*/api_layer.log; }

# The demo comes up, frames go by, the layer answers, and the demo ends on a signal.
demo_runs_and_answers() {
  start demo "$build/bin/velmoor_demo" --headless
  wait_for_line demo 'FOCUSED, [0-9.]* frames a second'
  open_stream
  exec 4>&-
  kill -INT "$pid"
  ended_well demo
  grep -q "Goodbye" "$scratch/demo.txt" || fail "the application was cut short"
  ! answers 127.0.0.1 || fail "the port is still served"
}

# The agent does all that it can, and at last has the application end.
tour() {
  start demo "$build/bin/velmoor_demo" --headless
  "$build/bin/velmoor_agent" --exit --pictures "$scratch" >"$scratch/agent.txt" 2>&1 || fail "the tour ended with $?"
  ended_well demo
  grep -q "session is EXITING" "$scratch/demo.txt" || fail "the session did not exit"
  port_is_free || fail "the port is still served"
  [ "$(layer_log | grep -c '==== session ended')" = 1 ] || fail "the log file has no end"
}

both_names() {
  local names=XR_APILAYER_KESTX_velmoor:XR_APILAYER_KESTX_orvanic
  for XR_ENABLE_API_LAYERS in "$names" XR_APILAYER_KESTX_orvanic:XR_APILAYER_KESTX_velmoor; do
    demo_runs_and_answers
    layer_log | grep -q 'Another copy of this layer lies below' || fail "the library was created once only"
    rm -rf "$state"
  done
}

unwritable_log_home() {
  XDG_STATE_HOME=/dev/null/nowhere demo_runs_and_answers
}

# Somebody else has the port on both families: no server, but the application does not notice.
port_taken() {
  start holder "$build/bin/port_holder" "$port"
  wait_for_line holder ready
  start demo "$build/bin/velmoor_demo" --headless --seconds 2
  ended_well demo
  grep -q 'FOCUSED, [0-9.]* frames a second' "$scratch/demo.txt" || fail "the application did not run"
  [ "$(layer_log | grep -c 'Failed to start server on ')" = 2 ] || fail "the log does not tell of both"
  warned_of_a_shared_port "$pid" IPv4 IPv6
}

port_taken_on_ipv6() {
  start holder "$build/bin/port_holder" "$port" ipv6
  wait_for_line holder ready
  demo_runs_and_answers
  warned_of_a_shared_port "$pid" IPv6
}

# The second of two applications tells of it; the first, which was alone, has nothing to tell, nor has one that comes
# when the other is gone and connections to it linger.
two_applications() {
  local first
  start first "$build/bin/velmoor_demo" --headless
  first=$pid
  wait_for_line first 'FOCUSED, [0-9.]* frames a second'
  open_stream
  start second "$build/bin/velmoor_demo" --headless --seconds 2
  ended_well second
  warned_of_a_shared_port "$pid" IPv4 IPv6
  warned_of_a_shared_port "$first"
  pid=$first
  kill -INT "$pid"
  ended_well first
  exec 4>&-
  demo_runs_and_answers
  warned_of_a_shared_port "$pid"
}

# odd_application KIND: a client is connected when it ends.
odd_application() {
  start odd "$build/bin/odd_application" "$1"
  wait_for_line odd ready
  open_stream
  exec 9>&-
  ended_well odd
}

# The process ends without ceremony.
abandoned_instance() { odd_application abandon; }

# The loader lets go of the library while its threads run; the server stays for as long as the process does.
refused_instance() { odd_application refused; }

# expect_of PATTERN TOOL [ARGUMENTS]: calls the tool; its answer has to hold the pattern.
expect_of() {
  local pattern=$1
  shift
  "$build/bin/velmoor" call "$@" >"$scratch/answer.txt" 2>&1 || fail "the call of $1 ended with $?"
  grep -q "$pattern" "$scratch/answer.txt" || fail "the answer of $1 lacks: $pattern"
}

# Relative to the view, at once and slowly: each goes as far as it is told, and the hand keeps its distance.
moves_relative_to_the_view() {
  local ahead='"position": [0, 0, -0.1], "base_space": "view"' orientation='"orientation": [0, 0, 0, 1]' tool
  start demo "$build/bin/velmoor_demo" --headless
  wait_for_line demo 'FOCUSED, [0-9.]* frames a second'
  expect_of true openxr_set_head_pose '{"position": [0, 1.6, 0], '"$orientation"', "base_space": "stage"}'
  expect_of true openxr_set_controller_pose \
    '{"hand": "right", "pose_type": "aim", "position": [0.5, 1.2, 0], '"$orientation"', "base_space": "stage"}'
  for duration in 0 1; do
    expect_of true openxr_set_head_pose "{$ahead, \"duration_seconds\": $duration}"
  done
  for tool in get_head_pose:0.0,1.6,-0.2 get_controller_pose:0.5,1.2,-0.2; do
    "$build/bin/velmoor" call "openxr_${tool%:*}" '{"hand": "right", "pose_type": "aim", "base_space": "stage"}' \
      >"$scratch/answer.txt" 2>&1 || fail "the call of ${tool%:*} ended with $?"
    tr -d ' \n' <"$scratch/answer.txt" | grep -qF "[${tool#*:}]" || fail "${tool%:*} does not tell ${tool#*:}"
  done
}

# Another layer between ours and the runtime, which doesn't tell what the runtime has.
over_api_dump() {
  local manifests=$build/api_dump
  [ -d "$manifests" ] || { echo "skipped: the package openxr-layer-apidump can't be had"; exit 77; }
  export XR_API_LAYER_PATH=$XR_API_LAYER_PATH:$manifests XR_API_DUMP_FILE_NAME=$scratch/dump
  XR_ENABLE_API_LAYERS=$XR_ENABLE_API_LAYERS:XR_APILAYER_LUNARG_api_dump start demo "$build/bin/velmoor_demo" --headless
  wait_for_line demo 'FOCUSED, [0-9.]* frames a second'
  expect_of XR_EXT_local_floor openxr_get_instance_info '{"include_enabled_extensions": true}'
  expect_of true openxr_set_head_pose '{"position": [0, 1.6, 0]}'
  kill -INT "$pid"
  ended_well demo
  grep -q xrSetInputDeviceLocationEXT "$scratch/dump" || fail "the other layer was not between"
}

# An application in C, with a tool for each thread.
tools_in_c() {
  start c_application "$build/bin/external_tools_c"
  wait_for_line c_application '3 tools are offered'
  expect_of '"x": 1.5' describe_layout '{"sizes": [1, 2], "place": {"x": 1.5}}'
  expect_of '"events_polled": [1-9]' count_events
  expect_of '"frame": [1-9]' dump_heights
  [ "$(wc -c <"$scratch/answer.txt")" -gt 80000 ] || fail "the long answer was cut"
  expect_of 'requested successfully' openxr_exit_session
  ended_well c_application
}

# as_told NAME SHELL...: feeds the lines that docs/clients.md marks with that name to a shell, with the demo running.
as_told() {
  local lines
  lines=$(sed -n "/^<!-- tested: $1 -->\$/,/^\`\`\`\$/p" "$root/docs/clients.md" | sed '1,2d;$d')
  [ -n "$lines" ] || fail "the document has no lines for $1"
  start demo "$build/bin/velmoor_demo" --headless
  wait_for_line demo 'FOCUSED, [0-9.]* frames a second'
  timeout 60 "${@:2}" <<<"$lines" >"$scratch/client.txt" 2>&1 || fail "the client ended with $?"
  grep -q 'orientation_valid.*: true' "$scratch/client.txt" || fail "the client did not get the head's pose"
  kill -INT "$pid"
  ended_well demo
}

# Also with the server fenced: a client of this machine does not notice.
curl_as_told() {
  need curl
  cd "$scratch"
  for ORVANICXR_LOCAL_ONLY in 0 1; do
    export ORVANICXR_LOCAL_ONLY
    as_told curl bash
    [ "$(grep -c '^Accepted$' client.txt)" = 3 ] || fail "not every post was accepted"
  done
  layer_log | grep -q 'ORVANICXR_LOCAL_ONLY is 1' || fail "the server was not fenced"
}

# Where the packages that the lines name are installed already.
need_npm_clients() {
  need npx
  cd "$root/tests/interop"
  PATH=$PWD/node_modules/.bin:$PATH need mcp-inspector-cli
  export npm_config_offline=true
}

inspector_as_told() {
  need_npm_clients
  as_told inspector bash -e
  grep -q '"name": "openxr_set_head_pose"' "$scratch/client.txt" || fail "the client did not list the tools"
}

javascript_as_told() {
  need_npm_clients
  as_told javascript node --input-type=module
}

# Another project finds the installed package, by CMake and by pkg-config.
package() {
  local prefix=$scratch/prefix source=$root/tests/package
  cmake --install "$build" --prefix "$prefix" >"$scratch/install.txt" 2>&1 || fail "cmake --install"
  cmake -S "$source" -B "$scratch/package" -DCMAKE_PREFIX_PATH="$prefix" -DOPENXR_INCLUDE_DIR="$OPENXR_INCLUDE_DIR" \
    -DCMAKE_EXE_LINKER_FLAGS="$SANITIZER" \
    >"$scratch/configure.txt" 2>&1 || fail "the package is not found"
  cmake --build "$scratch/package" >"$scratch/build.txt" 2>&1 || fail "the package does not build"
  XDG_STATE_HOME=$state "$scratch/package/links_the_functions" >"$scratch/links.txt" 2>&1 || fail "the functions do not link"
  PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name velmoor.pc)") pkg-config --cflags --libs velmoor \
    >"$scratch/flags.txt" 2>&1 || fail "pkg-config does not find the package"
}

port_is_free || fail "port $port is in use: end what runs with the layer, then test again"
"$1"
